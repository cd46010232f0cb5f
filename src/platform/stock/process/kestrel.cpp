#include "platform/kestrel.h"

#include <cerrno>
#include <cstdarg>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/mutex.h"
#include "platform/stock/process/child_process.h"

namespace {

/* Programs that record an event or reload a server would not be run again: at a stop they have as long as a request.
 * Those whose output is read may be cancelled. */
constexpr TChildLimits kExecLimits = {60, 0, 5000};
constexpr TChildLimits kReadLimits = {5, size_t{1024} * 1024, 500};

thread_local int t_time_limit_s = 0; // 0: the default

TMutex g_lock;
std::map<FILE *, int> g_results GUARDED_BY(g_lock); // of the programs whose output is open

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

    std::string text;
    const int result = child_run(argv, kReadLimits, &text);
    if (result < 0 && !has_run(result)) {
        errno = -result;
        return nullptr;
    }
    std::unique_ptr<FILE, decltype(&fclose)> stream(fmemopen(nullptr, text.size() + 1, "w+"), fclose);
    if (stream == nullptr)
        return nullptr;
    (void)fwrite(text.data(), 1, text.size(), stream.get());
    rewind(stream.get());
    const TLock guard(g_lock);
    g_results[stream.get()] = result;
    return stream.release();
}

int kestrel_pclose(FILE *stream)
{
    const TLock guard(g_lock);
    const auto closed = g_results.extract(stream);
    if (!closed)
        return -EINVAL;
    (void)fclose(stream);
    return closed.mapped();
}
