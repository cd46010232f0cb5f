#include "common/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/log_stream.h"

void trace(const char *source, const char *function, int line)
{
    write_stderr("%s:%s(%d)\n", source, function, line);
}

void trace_folder(const char *source, const char *function, int line, const char *folder)
{
    write_stderr("%s:%s(%d) str_stats_folder=[%s]\n", source, function, line, folder);
}

void write_stderr(const char *format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    if (length > 0) // else there is no text in it
        (void)log_stream_write(STDERR_FILENO, text, strlen(text));
}

void write_stdout(const char *text)
{
    (void)log_stream_write(STDOUT_FILENO, text, strlen(text));
}
