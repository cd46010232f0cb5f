#include "platform/kestrel.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <memory>
#include <string>
#include <vector>

#include "platform/stock/process/child_process.h"

namespace {

/* Programs that record an event or reload a server would not be run again: at a stop they have as long as a request.
 * Those whose output is read may be cancelled. */
constexpr TChildLimits kExecLimits = {60, 0, 5000};
constexpr TChildLimits kReadLimits = {5, size_t{1024} * 1024, 500};

/* The source of a kestrel_popen stream. */
struct TOutput {
    std::string text;
    size_t position = 0;
    int result = 0;
};

thread_local int t_time_limit_s = 0;  // 0: the default
thread_local int t_closed_result = 0; // of the last stream this thread closed

std::vector<const char *> argument_list(const char *program, va_list args)
{
    std::vector<const char *> argv = {program};
    while (const char *text = va_arg(args, const char *))
        argv.push_back(text);
    return argv;
}

/* For a negative result of child_run: whether a child was started. */
bool has_run(int result)
{
    return result == -ETIMEDOUT || result == -EFBIG || result == -EINTR || result == -ECHILD;
}

ssize_t output_read(void *cookie, char *buffer, size_t size)
{
    auto *output = static_cast<TOutput *>(cookie);
    const size_t count = std::min(size, output->text.size() - output->position);
    output->text.copy(buffer, count, output->position);
    output->position += count;
    return static_cast<ssize_t>(count);
}

int output_close(void *cookie)
{
    const std::unique_ptr<TOutput> output(static_cast<TOutput *>(cookie));
    t_closed_result = output->result;
    return 0;
}

} // namespace

TToolTimeLimit::TToolTimeLimit(int seconds)
{
    t_time_limit_s = seconds;
}

TToolTimeLimit::~TToolTimeLimit()
{
    t_time_limit_s = 0;
}

int kestrel_exec(int /*reserved1*/, int /*reserved2*/, int /*reserved3*/, const char *program, ...)
{
    va_list args;
    va_start(args, program);
    const std::vector<const char *> argv = argument_list(program, args);
    va_end(args);
    TChildLimits limits = kExecLimits;
    if (t_time_limit_s != 0) { // one that hangs must not prevent the others
        limits.timeout_s = t_time_limit_s;
        limits.max_stuck = 1;
        limits.by_arguments = true;
    }
    return child_run(argv, limits, nullptr);
}

FILE *kestrel_popen(const char *program, ...)
{
    va_list args;
    va_start(args, program);
    const std::vector<const char *> argv = argument_list(program, args);
    va_end(args);

    auto output = std::make_unique<TOutput>();
    output->result = child_run(argv, kReadLimits, &output->text);
    if (output->result < 0 && !has_run(output->result)) {
        errno = -output->result;
        return nullptr;
    }
    constexpr cookie_io_functions_t kRead = {output_read, nullptr, nullptr, output_close};
    FILE *stream = fopencookie(output.get(), "r", kRead);
    if (stream != nullptr)
        (void)output.release(); // owned by the stream now
    return stream;
}

int kestrel_pclose(FILE *stream)
{
    if (stream == nullptr)
        return -EINVAL;
    (void)fclose(stream);
    return t_closed_result;
}
