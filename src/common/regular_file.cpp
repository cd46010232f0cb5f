#include "common/regular_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/host_path.h"

TFd regular_file_open(const std::string &path, int flags, mode_t mode)
{
    TFd file(open(host_path(path).c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, mode));
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
