#include "stats/stat_dump.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "base/text.h"
#include "common/trace.h"
#include "platform/host_path.h"

namespace {

constexpr const char *kNewSuffix = ".new";

/* Puts the finished file in the place of the one before. 0 or -errno. */
int replace_file(const TFd &file, const std::string &new_path, const std::string &path, const std::string &text)
{
    const int result = regular_file_write(file, text.data(), text.size());
    if (result != 0)
        return result;
    return rename(host_path(new_path).c_str(), host_path(path).c_str()) == 0 ? 0 : -errno;
}

} // namespace

void csv_write(const char *folder, const char *name, const std::string &text)
{
    char path[256];
    if (snprintf(path, sizeof(path), "%s/%s", folder, name) >= static_cast<int>(sizeof(path)))
        return;
    const std::string new_path = std::string(path) + kNewSuffix;
    const TFd file = regular_file_open(host_path(new_path), O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.is_open())
        return;
    const int result = replace_file(file, new_path, path, text);
    if (result == 0)
        return;
    (void)unlink(host_path(new_path).c_str());
    write_stderr("cannot write %s: %s\n", path, error_text(-result).c_str());
}
