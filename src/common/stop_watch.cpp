#include "common/stop_watch.h"

#include <atomic>
#include <csignal>
#include <unistd.h>

#include "base/thread.h"
#include "common/trace.h"

namespace {

constexpr unsigned kHangS = 10;

std::atomic<const char *> g_step{""};

sigset_t alarms()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGALRM);
    return set;
}

/* A thread that waits for a disk runs no signal handler, so another one takes the alarm. */
void watch()
{
    const sigset_t set = alarms();
    int signal = 0;
    (void)sigwait(&set, &signal);
    write_stderr("%s hangs: the stop ends without it\n", g_step.load());
    _exit(0);
}

bool start_watch()
{
    const sigset_t set = alarms();
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // as it is in all other threads
    const int error = thread_start_detached("STOP-watch", watch);
    if (error != 0)
        write_stderr("the stop is not watched: pthread_create failed (%d)\n", error);
    return error == 0;
}

} // namespace

void stop_watch_step(const char *name)
{
    static const bool is_watched = start_watch();
    g_step = name;
    alarm(is_watched ? kHangS : 0);
}

void stop_watch_progress()
{
    if (alarm(0) != 0)
        alarm(kHangS);
}

void stop_watch_end()
{
    alarm(0);
}
