#include "common/trace.h"

#include <cstdarg>
#include <cstdio>

void trace(const char *source, const char *function, int line)
{
    tell("%s:%s(%d)\n", source, function, line);
}

void trace_folder(const char *source, const char *function, int line, const char *folder)
{
    tell("%s:%s(%d) str_stats_folder=[%s]\n", source, function, line, folder);
}

void tell(const char *format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    /* stderr is unbuffered: stdio would write each conversion by itself, and
     * lines of two threads would mix. One fputs of the finished text does not. */
    if (length > 0)
        fputs(text, stderr);
}
