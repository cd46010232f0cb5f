#include <cerrno>
#include <filesystem>
#include <map>
#include <utility>

#include "base/text.h"
#include "platform/host_path.h"
#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/config/state_changes.h"
#include "platform/stock/storage/md_array.h"
#include "platform/stock/storage/place_look.h"
#include "platform/stock/storage/volumes.h"
#include "platform/stock/system/text_file.h"

namespace {

constexpr const char *kVolumeFile = "/tarn/etc/volume.conf";
constexpr size_t kMaxMountinfo = size_t{4} * 1024 * 1024;
constexpr size_t kMaxKstat = 4096;

/* Volumes are queried every minute, and a missing one is reported when it disappears, not for as long as it is away. */
TStateChanges g_results;

int load_volumes(std::map<int32_t, TVolume> *out)
{
    TIni ini;
    const int result = ini_load(kVolumeFile, &ini);
    if (result == 0)
        *out = volumes_of(ini);
    if (g_results.is_news(kVolumeFile, result))
        log_Debug("%s cannot be used: %s", kVolumeFile, error_text(-result).c_str());
    return result;
}

/* Finds what is mounted at the volume's place. Returns 0; -ENODEV when nothing is. Below a host root, a folder counts
 * as a mounted volume, without a device. */
int find_mount(const TVolume &volume, const TPlace &place, TMount *out)
{
    std::string mountinfo;
    const int result = text_file_read("/proc/self/mountinfo", kMaxMountinfo, &mountinfo);
    const bool at_root = host_path("").empty();
    if (result != 0 && at_root)
        return result;
    if (mount_find(mountinfo, volume.mount_point, out))
        return 0;
    /* The configured place may be a link to the mount point. */
    const bool found = place.error == 0 && (at_root ? mount_find(mountinfo, place.real, out) : place.is_folder);
    return found ? 0 : -ENODEV;
}

/* The folder of sysfs for a mounted device; empty for a file system without one (ZFS, a plain folder). File systems on
 * several devices have a device number of their own and name one of the devices as their source. */
std::string device_folder(const TMount &mount)
{
    std::vector<std::string> names;
    std::string folder = "/sys/dev/block/" + mount.device;
    if (!mount.device.empty() && host_folder_names(folder, &names) == 0)
        return folder;
    if (!mount.source.starts_with("/dev/"))
        return {};
    std::error_code error;
    std::filesystem::path node = std::filesystem::read_symlink(host_path(mount.source), error);
    if (error)
        node = mount.source;
    return "/sys/class/block/" + node.filename().string();
}

/* State of the array or the pool under a volume. */
int32_t array_status(const TMount &mount)
{
    std::string state;
    if (mount.kind == "zfs" &&
        text_file_read("/proc/spl/kstat/zfs/" + mount.source.substr(0, mount.source.find('/')) + "/state", kMaxKstat,
                       &state) == 0)
        return text_trimmed(state) == "ONLINE" ? kVolumeReady : kVolumeFailed;
    const std::string folder = device_folder(mount);
    return folder.empty() ? kVolumeReady : md_status_below(folder);
}

/* Finds a volume's mount and its space. Returns 0; -ENODEV when nothing is mounted there; another -errno when a mounted
 * volume cannot be measured. */
int measure(const TVolume &volume, TMount *mount, t_volume_usage *usage)
{
    TPlace place;
    int result = place_look(volume.mount_point, &place);
    if (result == 0)
        result = find_mount(volume, place, mount);
    if (result == 0)
        result = -place.error;
    const std::string about = std::to_string(volume.id);
    if (g_results.is_news(about, result) && result != -EINTR)
        log_Debug(result == -ENODEV ? "volume %d at %s is not mounted" : "volume %d at %s cannot be measured: %s",
                  volume.id, volume.mount_point.c_str(), error_text(-result).c_str());
    if (result == 0)
        *usage = volume_usage(volume, place.space);
    return result;
}

} // namespace

/* A volume that is not mounted or cannot be measured is omitted: the others must not be affected. */
uint32_t PAL_resmon_get_disk_usage(const t_auth & /*auth*/, const t_volume_info & /*in*/, t_volume_info &out)
{
    std::map<int32_t, TVolume> volumes;
    if (const int result = load_volumes(&volumes); result != 0)
        return static_cast<uint32_t>(-result);
    t_volume_info info;
    for (const auto &[id, volume] : volumes) {
        TMount mount;
        t_volume_usage usage;
        if (measure(volume, &mount, &usage) == 0)
            info.usage.push_back(std::move(usage));
    }
    out = std::move(info);
    return 0;
}

/* A volume that is not mounted has a status, but no free space to report. */
uint32_t PAL_storage_get_volume_info(const t_auth & /*auth*/, const t_storage_disk_vol_info &in,
                                     t_storage_disk_vol_info &out)
{
    std::map<int32_t, TVolume> volumes;
    if (const int result = load_volumes(&volumes); result != 0)
        return static_cast<uint32_t>(-result);
    const auto volume = volumes.find(in.target_vol_id);
    const bool is_known = volume != volumes.end();
    if (g_results.is_news("no " + std::to_string(in.target_vol_id), is_known ? 0 : -ENODEV))
        log_Debug("no volume %d in %s", in.target_vol_id, kVolumeFile);
    if (!is_known)
        return ENODEV;
    t_storage_disk_vol_info info;
    info.target_vol_id = in.target_vol_id;
    TMount mount;
    t_volume_usage usage;
    const int result = measure(volume->second, &mount, &usage);
    if (result != 0 && result != -ENODEV)
        return static_cast<uint32_t>(-result);
    info.status = result == 0 ? array_status(mount) : kVolumeNotMounted;
    if (result == 0)
        info.free_bytes = std::to_string(usage.free_bytes);
    out = std::move(info);
    return 0;
}
