#include "platform/diag.h"

#include <csignal>
#include <cstring>
#include <execinfo.h>
#include <iterator>
#include <sys/prctl.h>
#include <unistd.h>

#include "base/log_stream.h"

namespace {

char g_program[32] = "?"; // set before the first handler is installed

/* Makes only async-signal-safe calls: the process may have crashed inside malloc. */
void on_crash(int signal)
{
    char thread[16] = "";
    (void)prctl(PR_GET_NAME, thread);
    const char number[3] = {static_cast<char>('0' + signal / 10), static_cast<char>('0' + signal % 10), '\0'};
    const char *const parts[] = {"\n", g_program, ": crash signal ", number, " in thread ", thread, "\n"};
    char line[128];
    char *end = line;
    for (const char *part : parts)
        end = stpncpy(end, part, static_cast<size_t>(std::end(line) - end));
    (void)log_stream_write(STDERR_FILENO, line, static_cast<size_t>(end - line));
    void *frames[48];
    const int depth = backtrace(frames, sizeof(frames) / sizeof(frames[0]));
    /* Frame by frame, one write each: standard error may be a pipe that is not read. */
    for (int i = 0; i < depth; ++i) {
        (void)log_stream_call(
            STDERR_FILENO, [](int fd, void *frame) { backtrace_symbols_fd(static_cast<void **>(frame), 1, fd); },
            &frames[i]);
    }
    /* The default action is restored (SA_RESETHAND); the signal, also one sent by another process, is delivered again
     * when this handler returns. */
    (void)raise(signal);
}

} // namespace

int diag_com_install_siganl_handler(int signal, const char *program, int /*option*/)
{
    strncpy(g_program, program, sizeof(g_program) - 1);
    void *frame[1];
    (void)backtrace(frame, 1); // loads its library now rather than in a crash
    struct sigaction action = {};
    action.sa_handler = on_crash;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    return sigaction(signal, &action, nullptr);
}
