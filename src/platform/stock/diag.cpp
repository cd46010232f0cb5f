#include "platform/diag.h"

#include <csignal>
#include <cstring>
#include <execinfo.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

char g_program[32] = "?"; // set before the first handler is installed

void put(const char *text)
{
    (void)!write(STDERR_FILENO, text, strlen(text));
}

/* Only async-signal-safe calls: the process may have crashed inside malloc. */
void on_crash(int signal)
{
    char thread[16] = "";
    (void)prctl(PR_GET_NAME, thread);
    char number[4] = {static_cast<char>('0' + signal / 10), static_cast<char>('0' + signal % 10), '\0', '\0'};
    put("\n");
    put(g_program);
    put(": crash signal ");
    put(number);
    put(" in thread ");
    put(thread);
    put("\n");
    void *frames[48];
    const int depth = backtrace(frames, sizeof(frames) / sizeof(frames[0]));
    backtrace_symbols_fd(frames, depth, STDERR_FILENO);
    /* The default action is back in place (SA_RESETHAND); the signal is taken as
     * soon as this handler returns, also one that somebody sent. */
    (void)raise(signal);
}

} // namespace

int diag_com_install_siganl_handler(int signal, const char *program, int /*option*/)
{
    strncpy(g_program, program, sizeof(g_program) - 1);
    void *frame[1];
    (void)backtrace(frame, 1); // loads what it needs now, not in a crash
    struct sigaction action = {};
    action.sa_handler = on_crash;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    return sigaction(signal, &action, nullptr);
}
