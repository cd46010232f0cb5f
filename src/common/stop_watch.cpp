#include "common/stop_watch.h"

#include <atomic>
#include <csignal>
#include <unistd.h>

#include "base/thread.h"
#include "common/trace.h"

namespace {

constexpr unsigned kHangS = 10;

std::atomic<const char *> g_step{nullptr}; // null: the stop is complete
/* Only the main thread uses these. */
pthread_t g_thread;
bool g_is_watched = false;

sigset_t alarms()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGALRM);
    return set;
}

/* A thread that waits for a disk runs no signal handler, so another one takes the alarm. */
void *watch(void * /*argument*/)
{
    thread_set_name("STOP-watch");
    const sigset_t set = alarms();
    int signal = 0;
    (void)sigwait(&set, &signal);
    const char *step = g_step;
    if (step == nullptr)
        return nullptr;
    write_stderr("%s hangs: the stop ends without it\n", step);
    _exit(0);
}

} // namespace

void stop_watch_begin()
{
    const sigset_t set = alarms();
    pthread_sigmask(SIG_BLOCK, &set, nullptr); // as it is in all other threads
    const int error = thread_create(kJoinable, watch, nullptr, &g_thread);
    g_is_watched = error == 0;
    if (error != 0)
        write_stderr("the stop is not watched: pthread_create failed (%d)\n", error);
}

void stop_watch_step(const char *name)
{
    g_step = name;
    alarm(g_is_watched ? kHangS : 0);
}

void stop_watch_progress()
{
    if (alarm(0) != 0)
        alarm(kHangS);
}

void stop_watch_end()
{
    alarm(0);
    g_step = nullptr;
    if (!g_is_watched)
        return;
    pthread_kill(g_thread, SIGALRM);
    pthread_join(g_thread, nullptr);
}
