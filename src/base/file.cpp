#include "base/file.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr size_t kChunk = 16384;
constexpr int kNeverWait = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

} // namespace

TFd regular_file_open(const std::string &path, int flags, mode_t mode)
{
    TFd file(open(path.c_str(), flags | kNeverWait | O_NOFOLLOW, mode));
    struct stat status = {};
    if (file.is_open() && (fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)))
        file.reset();
    return file;
}

int regular_file_write(const TFd &file, const char *text, size_t length)
{
    while (length > 0) {
        const ssize_t written = write(file.get(), text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return -errno;
        text += written;
        length -= static_cast<size_t>(written);
    }
    return 0;
}

int file_read_rest(const TFd &file, size_t max_size, std::string *text)
{
    text->clear();
    for (;;) {
        const size_t have = text->size();
        text->resize(have + kChunk);
        const ssize_t got = read(file.get(), text->data() + have, kChunk);
        const int error = got < 0 ? errno : 0;
        text->resize(have + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (error != 0 && error != EINTR)
            return -error;
        if (text->size() > max_size)
            return -EFBIG;
        if (got == 0)
            return 0;
    }
}

bool fd_is_readable(const TFd &fd)
{
    struct pollfd one = {fd.get(), POLLIN, 0};
    return poll(&one, 1, 0) > 0;
}

int file_read(const std::string &path, size_t max_size, std::string *out)
{
    const TFd file(open(path.c_str(), O_RDONLY | kNeverWait));
    struct stat status = {};
    if (!file.is_open() || fstat(file.get(), &status) != 0)
        return -errno;
    if (!S_ISREG(status.st_mode))
        return -EINVAL;
    std::string text;
    const int result = file_read_rest(file, max_size, &text);
    if (result == 0)
        *out = std::move(text);
    return result;
}
