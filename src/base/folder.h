#pragma once

#include <dirent.h>
#include <memory>
#include <string>
#include <vector>

struct TFolderClose {
    void operator()(DIR *folder) const { (void)closedir(folder); }
};

/* An open folder, closed with its owner; one thread at a time reads it. */
using TFolder = std::unique_ptr<DIR, TFolderClose>;

/* Opens a folder; null with errno set on failure. */
inline TFolder folder_open(const std::string &path)
{
    return TFolder(opendir(path.c_str()));
}

/* The names in a folder, sorted, without "." and "..". 0 or -errno, which leaves *out as it is. */
int folder_names(const std::string &path, std::vector<std::string> *out);
