#include "platform/stock/storage/smart_reader.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/text.h"
#include "platform/host_path.h"
#include "platform/interrupt.h"
#include "platform/stock/process/call_wait.h"
#include "platform/stock/storage/smartctl.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSocket = "/run/velomond/smart.socket";
constexpr int kMaxStatus = 255;
constexpr TChildLimits kLimits = {60, size_t{1024} * 1024, 500, 1, true}; // the device is an argument

int connect_helper(TFd *out)
{
    const std::string path = host_path(kSocket);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
        return -ENOENT;
    path.copy(address.sun_path, path.size());
    TFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.is_open())
        return -errno;
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        return errno == ECONNREFUSED ? -ENOENT : -errno; // a stale socket file
    *out = std::move(fd);
    return 0;
}

/* Reads the answer to its end or to a limit. */
int read_answer(int fd, const TChildLimits &limits, std::string *text)
{
    uint64_t end_ms = current_time_stamp_mono_r() + static_cast<uint64_t>(limits.timeout_s) * 1000;
    bool stopping = false;
    TCallWait wait;
    for (;;) {
        if (!stopping && platform_interrupted()) {
            stopping = true;
            end_ms = std::min(end_ms, current_time_stamp_mono_r() + limits.stop_grace_ms);
        }
        char data[4096];
        const ssize_t count = read(fd, data, sizeof(data));
        if (count == 0)
            return 0;
        if (count > 0)
            text->append(data, static_cast<size_t>(count));
        else if (errno != EAGAIN && errno != EINTR)
            return errno == ECONNRESET ? -EAGAIN : -errno; // the helper ended before reading the whole request
        if (text->size() > limits.max_output)
            return -EFBIG;
        const uint64_t now_ms = current_time_stamp_mono_r();
        if (now_ms >= end_ms)
            return stopping ? -EINTR : -ETIMEDOUT;
        if (count < 0)
            wait.wait({fd}, end_ms - now_ms);
    }
}

/* Removes the last line and returns the exit status in it, or -EAGAIN without one: the answer was truncated. */
int take_exit_status(std::string *text)
{
    static constexpr std::string_view kExit = "\nexit ";
    const size_t line = text->rfind(kExit);
    long long status = 0;
    if (line == std::string::npos || text->back() != '\n')
        return -EAGAIN;
    const std::string_view number = std::string_view(*text).substr(line + kExit.size());
    if (!text_to_number(number.substr(0, number.size() - 1), &status) || status < 0 || status > kMaxStatus)
        return -EAGAIN;
    text->resize(line);
    return static_cast<int>(status);
}

} // namespace

int smart_socket_ask(const std::string &device, bool may_wake, const TChildLimits &limits, std::string *document)
{
    TFd fd;
    if (const int result = connect_helper(&fd); result != 0)
        return result;
    const std::string request = (may_wake ? "wake " : "") + device + "\n";
    if (send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
        return -EAGAIN;
    std::string text;
    if (const int result = read_answer(fd.get(), limits, &text); result != 0)
        return result;
    const int status = take_exit_status(&text);
    if (status >= 0)
        *document = std::move(text);
    return status;
}

int smart_document(const std::string &disk, bool may_wake, std::string *out)
{
    out->clear(); // a child's output is appended
    const int status = smart_socket_ask(disk, may_wake, kLimits, out);
    if (status != -ENOENT)
        return status;
    const std::string node = "/dev/" + disk;
    return child_run(smartctl_command(node.c_str(), may_wake), kLimits, out);
}
