#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "platform/host_path.h"
#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/md_array.h"
#include "platform/stock/text_file.h"
#include "platform/stock/volumes.h"

namespace {

constexpr const char *kVolumeFile = "/tarn/etc/volume.conf";
constexpr size_t kMaxMountinfo = size_t{4} * 1024 * 1024;

int load_volumes(std::vector<T_VOLUME> *out)
{
    T_INI ini;
    const int result = ini_load(kVolumeFile, &ini);
    if (result == 0)
        *out = volumes_of(ini);
    else
        log_Debug("%s cannot be used: %s", kVolumeFile, strerror(-result));
    return result;
}

struct T_FREE {
    void operator()(char *text) const { free(text); }
};

/* What is mounted at the volume's place; 0, -ENODEV when nothing is. A folder
 * behind a host root stands for a mounted volume, with no device under it. */
int find_mount(const T_VOLUME &volume, T_MOUNT *out)
{
    std::string mountinfo;
    const int result = text_file_read("/proc/self/mountinfo", kMaxMountinfo, &mountinfo);
    const bool at_root = host_path("").empty();
    if (result != 0 && at_root)
        return result;
    if (mount_find(mountinfo, volume.mount_point, out))
        return 0;
    if (!at_root) {
        struct stat status = {};
        return stat(host_path(volume.mount_point).c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? 0 : -ENODEV;
    }
    /* The configured place may be a link to the mount point. */
    const std::unique_ptr<char, T_FREE> real(realpath(volume.mount_point.c_str(), nullptr));
    return real != nullptr && mount_find(mountinfo, real.get(), out) ? 0 : -ENODEV;
}

/* The folder of sysfs for a mounted device; empty for a file system without one
 * (ZFS, a plain folder). File systems over several devices have a device number
 * of their own and name one of them as their source. */
std::string device_folder(const T_MOUNT &mount)
{
    std::vector<std::string> names;
    std::string folder = "/sys/dev/block/" + mount.device;
    if (!mount.device.empty() && folder_names(folder, &names) == 0)
        return folder;
    if (!mount.source.starts_with("/dev/"))
        return {};
    char target[PATH_MAX];
    const ssize_t length = readlink(host_path(mount.source).c_str(), target, sizeof(target));
    const std::string node = length > 0 ? std::string(target, static_cast<size_t>(length)) : mount.source;
    return "/sys/class/block" + node.substr(std::min(node.find_last_of('/'), node.size()));
}

/* Status and space. 0; negative when a mounted volume cannot be measured. A
 * volume without its space is told. */
int measure(const T_VOLUME &volume, int32_t *status, t_volume_usage *usage)
{
    T_MOUNT mount;
    int result = find_mount(volume, &mount);
    if (result == -ENODEV) {
        log_Debug("volume %d at %s is not mounted", volume.id, volume.mount_point.c_str());
        *status = kVolumeNotMounted;
        return 0;
    }
    struct statvfs space = {};
    if (result == 0 && statvfs(host_path(volume.mount_point).c_str(), &space) != 0)
        result = -errno;
    if (result != 0) {
        log_Debug("volume %d at %s cannot be measured: %s", volume.id, volume.mount_point.c_str(), strerror(-result));
        return result;
    }
    const std::string folder = device_folder(mount);
    *status = folder.empty() ? kVolumeReady : md_status_below(folder);
    *usage = volume_usage(volume, space);
    return 0;
}

} // namespace

/* A volume that is not mounted or cannot be measured is left out: the others
 * must not suffer from it. */
uint32_t PAL_resmon_get_disk_usage(const t_auth & /*auth*/, const t_volume_info & /*in*/, t_volume_info &out)
{
    std::vector<T_VOLUME> volumes;
    if (const int result = load_volumes(&volumes); result != 0)
        return static_cast<uint32_t>(-result);
    t_volume_info info;
    for (const T_VOLUME &volume : volumes) {
        int32_t status = 0;
        t_volume_usage usage;
        if (measure(volume, &status, &usage) == 0 && status >= 0)
            info.usage.push_back(std::move(usage));
    }
    out = std::move(info);
    return 0;
}

/* A volume that is not mounted has a status and no free space to tell. */
uint32_t PAL_storage_get_volume_info(const t_auth & /*auth*/, const t_storage_disk_vol_info &in,
                                     t_storage_disk_vol_info &out)
{
    std::vector<T_VOLUME> volumes;
    if (const int result = load_volumes(&volumes); result != 0)
        return static_cast<uint32_t>(-result);
    const auto volume =
        std::find_if(volumes.begin(), volumes.end(), [&](const T_VOLUME &one) { return one.id == in.target_vol_id; });
    if (volume == volumes.end()) {
        log_Debug("no volume %d in %s", in.target_vol_id, kVolumeFile);
        return ENODEV;
    }
    t_storage_disk_vol_info info;
    info.target_vol_id = volume->id;
    t_volume_usage usage;
    if (const int result = measure(*volume, &info.status, &usage); result != 0)
        return static_cast<uint32_t>(-result);
    if (info.status >= 0)
        info.free_bytes = std::to_string(usage.free_bytes);
    out = std::move(info);
    return 0;
}
