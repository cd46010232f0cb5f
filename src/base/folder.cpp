#include "base/folder.h"

#include <algorithm>
#include <cerrno>
#include <string_view>

int folder_names(const std::string &path, std::vector<std::string> *out)
{
    const TFolder folder = folder_open(path);
    if (folder == nullptr)
        return -errno;
    std::vector<std::string> names;
    errno = 0;
    while (const dirent64 *entry = folder_next(folder.get())) { // the stream is local to this call
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    if (errno != 0)
        return -errno;
    std::sort(names.begin(), names.end());
    *out = std::move(names);
    return 0;
}
