#include "stats/stat_dump.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "base/text.h"
#include "common/trace.h"
#include "platform/host_path.h"

void csv_write(const char *folder, const char *name, const std::string &text)
{
    constexpr size_t kLongestPath = 255;
    const std::string path = std::string(folder) + "/" + name;
    if (path.size() > kLongestPath)
        return;
    const std::string old_file = host_path(path), new_file = old_file + ".new";
    const TFd file = regular_file_open(new_file, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.is_open())
        return;
    const int result = regular_file_write(file, text.data(), text.size());
    if (result == 0 && rename(new_file.c_str(), old_file.c_str()) == 0)
        return;
    const int error = result != 0 ? -result : errno;
    (void)unlink(new_file.c_str());
    write_stderr("cannot write %s: %s\n", path.c_str(), error_text(error).c_str());
}
