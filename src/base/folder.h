#pragma once

#include <dirent.h>
#include <memory>
#include <string>
#include <vector>

struct TFolderClose {
    void operator()(DIR *folder) const { (void)closedir(folder); }
};

/* Owns an open folder and closes it; for one thread at a time. */
using TFolder = std::unique_ptr<DIR, TFolderClose>;

/* Opens a folder; null with errno set on failure. */
inline TFolder folder_open(const std::string &path)
{
    return TFolder(opendir(path.c_str()));
}

/* Returns the next entry, valid until the call after; null at the end, or with errno set
 * if the folder cannot be read. */
inline const dirent64 *folder_next(DIR *folder)
{
    return readdir64(folder);
}

/* Lists the names in a folder, sorted, without "." and "..". Returns 0 or -errno; *out is unchanged on failure. */
int folder_names(const std::string &path, std::vector<std::string> *out);
