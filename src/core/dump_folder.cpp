#include "core/dump_folder.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.h"
#include "platform/host_path.h"

namespace {

constexpr const char *kRoot = "/Vtmp/.sys_stats";
constexpr int kFolders = 3;
constexpr mode_t kFolderMode = 0644; // deliberate: the collector runs as root

std::string folder_path(const char *name, int number)
{
    return text_format("%s/%s_%d", kRoot, name, number);
}

bool is_free(const std::string &path)
{
    struct stat status = {};
    return stat(host_path(path).c_str(), &status) != 0 && errno == ENOENT;
}

void rotate()
{
    for (int i = 0; i < kFolders; ++i) {
        const std::string backup = host_path(folder_path("log_bak", i));
        (void)unlink(backup.c_str()); // leaves a folder where it is: see the header
        (void)rename(host_path(folder_path("log", i)).c_str(), backup.c_str());
    }
}

} // namespace

std::string dump_folder_open()
{
    (void)mkdir(host_path(kRoot).c_str(), kFolderMode); // fails where it exists
    int number = 0;
    while (number < kFolders && !is_free(folder_path("log", number)))
        ++number;
    if (number == kFolders) {
        rotate();
        number = 0;
    }
    std::string folder = folder_path("log", number);
    (void)mkdir(host_path(folder).c_str(), kFolderMode);
    return folder;
}
