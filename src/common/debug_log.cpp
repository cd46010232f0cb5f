#include "common/debug_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/fd.h"
#include "base/mutex.h"
#include "platform/host_path.h"
#include "platform/logging.h"

namespace {

constexpr off_t kRotateAbove = 2 * 1024 * 1024 - 2 * 1024;
constexpr mode_t kFolderMode = 0644; // as the appliance's other logs have it
constexpr mode_t kFileMode = 0644;   // whatever umask the daemon runs with
constexpr size_t kBackupPathSize = 128;

TMutex g_log_lock; // one line at a time, whichever file it goes to

void make_folder_of(const char *path)
{
    const std::string plain(path);
    const std::string folder = host_path(plain.substr(0, plain.find_last_of('/')));
    struct stat status = {};
    if (stat(folder.c_str(), &status) == 0)
        return;
    const int result = mkdir(folder.c_str(), kFolderMode);
    if (result != 0)
        log_Debug("[%s] create log folder %s failed, ret=%d", "VeloMond_log", path, result);
}

void rotate(const char *path)
{
    struct stat status = {};
    if (stat(host_path(path).c_str(), &status) != 0 || status.st_size <= kRotateAbove)
        return;
    char backup[kBackupPathSize];
    snprintf(backup, sizeof(backup), "%s_bak", path);
    (void)rename(host_path(path).c_str(), host_path(backup).c_str());
}

void append(const char *path, const char *line)
{
    /* The lock covers the size test too: two threads that both saw a full file
     * would move it twice, and the second move would replace the backup by an
     * almost empty file. */
    const TLock guard(g_log_lock);
    make_folder_of(path);
    rotate(path);
    /* A pipe in place of the file is not waited for. */
    const TFd file(open(host_path(path).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, kFileMode));
    if (file.is_open())
        (void)!write(file.get(), line, strlen(line));
}

} // namespace

void log_File_Debug(const char *path, const char *format, ...)
{
    char line[2048];
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof(line), format, args);
    va_end(args);

    /* A line for which there is no memory must not end the work that it reports. */
    try {
        append(path, line);
    } catch (const std::exception &) {
        log_Debug("[%s] no memory to log into %s", "VeloMond_log", path);
    }
}
