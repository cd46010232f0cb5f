#include "platform/stock/storage/folder_size.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>

#include "base/folder.h"
#include "platform/host_path.h"
#include "platform/interrupt.h"
#include "platform/stock/storage/place_look.h"

namespace {

/* Each level holds a descriptor; a database is a few levels deep. */
constexpr int kMaxDepth = 64;

TFolder open_folder(int parent, const char *name, int more_flags)
{
    const int fd = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | more_flags);
    if (fd < 0)
        return nullptr;
    TFolder dir(fdopendir(fd));
    if (dir == nullptr)
        close(fd);
    return dir;
}

void count_file(const struct stat &status, TFolderSize *size)
{
    const auto bytes = static_cast<uint64_t>(std::max<off_t>(status.st_size, 0));
    ++size->files;
    size->bytes += std::min(bytes, UINT64_MAX - size->bytes);
    size->largest_bytes = std::max(size->largest_bytes, bytes);
}

class TWalk {
public:
    TWalk(dev_t device, TFolderSize *size) : m_device(device), m_size(size) {}

    /* False when the caller was asked to stop. */
    bool enter(DIR *dir, int depth)
    {
        while (const dirent64 *entry = folder_next(dir)) {
            if (platform_interrupted())
                return false;
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            struct stat status = {};
            if (fstatat(dirfd(dir), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            if (S_ISREG(status.st_mode))
                count_file(status, m_size);
            else if (S_ISDIR(status.st_mode) && status.st_dev == m_device && !below(dir, entry->d_name, depth))
                return false;
        }
        return true;
    }

private:
    bool below(DIR *parent, const char *name, int depth)
    {
        ++m_size->folders;
        /* Links are not followed here either: the folder may have become one. */
        const TFolder dir = depth < kMaxDepth ? open_folder(dirfd(parent), name, O_NOFOLLOW) : nullptr;
        return dir == nullptr || enter(dir.get(), depth + 1);
    }

    const dev_t m_device;
    TFolderSize *const m_size;
};

} // namespace

int folder_measure(const std::string &path, TFolderSize *out)
{
    TPlace place; // the walk would block on a file system that does not answer
    if (const int result = place_look(path, &place); result != 0)
        return result;
    const TFolder dir = open_folder(AT_FDCWD, host_path(path).c_str(), 0);
    struct stat status = {};
    if (dir == nullptr || fstat(dirfd(dir.get()), &status) != 0)
        return -errno;
    TFolderSize size;
    if (!TWalk(status.st_dev, &size).enter(dir.get(), 0))
        return -EINTR;
    *out = size;
    return 0;
}
