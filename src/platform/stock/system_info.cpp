#include "platform/system_info.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/host_path.h"

int get_platform_system(uint32_t *type)
{
    struct stat status = {};
    const bool zfs = stat(host_path("/tarn/etc/TARN_ZFS").c_str(), &status) == 0;
    if (!zfs && errno != ENOENT && errno != ENOTDIR)
        return -errno;
    *type = zfs ? 2 : 0;
    return 0;
}

bool check_system_init(const char *path)
{
    return path != nullptr && access(host_path(path).c_str(), F_OK) == 0;
}
