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

/* A folder inside another one. Links are not followed here either: it may have become one. */
TFolder open_below(DIR *parent, const char *name)
{
    const int fd = openat(dirfd(parent), name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
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

/* Adds up the content of a folder on that device. False when the caller was asked to stop. */
bool walk(DIR *dir, dev_t device, int depth, TFolderSize *size)
{
    while (const dirent64 *entry = folder_next(dir)) {
        if (platform_interrupted())
            return false;
        const std::string_view name = entry->d_name;
        struct stat status = {};
        if (name == "." || name == ".." || fstatat(dirfd(dir), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISREG(status.st_mode))
            count_file(status, size);
        if (!S_ISDIR(status.st_mode) || status.st_dev != device)
            continue;
        ++size->folders;
        const TFolder below = depth < kMaxDepth ? open_below(dir, entry->d_name) : nullptr;
        if (below != nullptr && !walk(below.get(), device, depth + 1, size))
            return false;
    }
    return true;
}

} // namespace

int folder_measure(const std::string &path, TFolderSize *out)
{
    TPlace place; // the walk would block on a file system that does not answer
    if (const int result = place_look(path, &place); result != 0)
        return result;
    const TFolder dir = folder_open(host_path(path));
    struct stat status = {};
    if (dir == nullptr || fstat(dirfd(dir.get()), &status) != 0)
        return -errno;
    TFolderSize size;
    if (!walk(dir.get(), status.st_dev, 0, &size))
        return -EINTR;
    *out = size;
    return 0;
}
