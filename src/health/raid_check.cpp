#include "health/raid_check.h"

#include <cstdlib>
#include <string>

#include "common/debug_log.h"
#include "common/system_volume.h"
#include "health/volume_config.h"
#include "health/volume_report.h"
#include "platform/pal.h"

namespace {

constexpr const char *kFunction = "do_raid_check";

/* The number behind the two leading characters of the volume's diskId, in
 * hexadecimal. */
int32_t do_get_vpkg_system_zfs_devid(int32_t volume_id)
{
    std::string text;
    if (!read_ini_value(kVolumeConf, volume_section(volume_id).c_str(), "diskId", &text)) {
        log_File_Debug(kLogVolume, "%s:%s(%d) do_get_ini_info failed", "sysstat_vol.cpp",
                       "do_get_vpkg_system_zfs_devid", 741);
        return 0;
    }
    return text.size() > 2 ? static_cast<int32_t>(strtol(text.c_str() + 2, nullptr, 16)) : 0;
}

} // namespace

void do_raid_check()
{
    /* Not the id that the volume checks keep for the life of the process: this check
     * follows the configuration. */
    const int32_t volume_id = volume_id_read(kSystemVolumeKey);
    const int32_t device_id = volume_on_zfs() ? do_get_vpkg_system_zfs_devid(volume_id) : volume_id;

    t_auth auth;
    if (const uint32_t result = PAL_auth_get_auth(auth); result != 0)
        volume_log_failed(kFunction, 768, "PAL_auth_get_auth", result);
    t_storage_disk_vol_info request, volume;
    request.target_vol_id = volume_id;
    if (const uint32_t result = PAL_storage_get_volume_info(auth, request, volume); result != 0) {
        volume_log_failed(kFunction, 777, "PAL_storage_get_volume_info", result);
        return;
    }
    t_storage_enclosure_info enclosures;
    if (const uint32_t result = PAL_storage_get_enclosure_list(auth, {device_id}, enclosures); result != 0) {
        volume_log_failed(kFunction, 788, "PAL_storage_get_enclosure_list", result);
        return;
    }
    /* One record for all disks: the values of the last one remain. */
    t_storage_smart_info smart;
    for (int32_t disk = 0; disk < enclosures.disk_count; ++disk) {
        if (const uint32_t result = PAL_storage_get_disk_smart_info(auth, {disk}, smart); result != 0) {
            volume_log_failed(kFunction, 799, "PAL_storage_get_disk_smart_info", result);
            return;
        }
    }
    if (volume.status <= 0 && smart.alert == 1)
        (void)PAL_vbus_nc_notify("'$LOG_LEVEL_WARN'", "'$LOG_TYPE_LOG_NOTIFY'", "C001", "001030", kNotifyApplication,
                                 nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}
