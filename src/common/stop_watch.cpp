#include "common/stop_watch.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/log_stream.h"

namespace {

constexpr unsigned kHangS = 10;

char g_message[96]; // complete while the alarm is set: the handler may only write

void on_hang(int /*signal*/)
{
    (void)log_stream_write(STDERR_FILENO, g_message, strlen(g_message));
    _exit(0);
}

} // namespace

void stop_watch_step(const char *name)
{
    alarm(0);
    snprintf(g_message, sizeof(g_message), "%s hangs: the stop ends without it\n", name);
    signal(SIGALRM, on_hang);
    alarm(kHangS);
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
