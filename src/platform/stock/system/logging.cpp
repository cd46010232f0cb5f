#include "platform/logging.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/log_stream.h"

void log_Debug(const char *format, ...)
{
    char text[2048] = ""; // what cannot be formatted is an empty line
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof(text) - 1, format, args);
    va_end(args);
    size_t length = strlen(text);
    if (length == 0 || text[length - 1] != '\n')
        text[length++] = '\n';
    (void)log_stream_write(STDERR_FILENO, text, length);
}
