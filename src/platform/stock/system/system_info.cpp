#include "platform/system_info.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "base/text.h"
#include "platform/host_path.h"
#include "platform/logging.h"

int get_platform_system(uint32_t *type)
{
    constexpr const char *kZfsMarker = "/tarn/etc/TARN_ZFS";
    struct stat status = {};
    const bool zfs = stat(host_path(kZfsMarker).c_str(), &status) == 0;
    const int error = zfs ? 0 : errno;
    if (error != 0 && error != ENOENT && error != ENOTDIR) {
        log_Debug("cannot check for %s: %s", kZfsMarker, error_text(error).c_str());
        return -error;
    }
    *type = zfs ? 2 : 0;
    return 0;
}

bool check_system_init(const char *path)
{
    return path != nullptr && access(host_path(path).c_str(), F_OK) == 0;
}
