#include "health/volume_check.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/platform_call.h"
#include "common/system_volume.h"
#include "common/worker.h"
#include "health/volume_config.h"

namespace {

constexpr int64_t kMb = 1048576;
constexpr int kDisableDelayS = 10;

/* One check of one volume. */
struct TVolumeCheck {
    TVolumeWatch *watch;
    size_t role; // row of the table
    bool force;

    int32_t volume_id() const { return watch->volume_ids[role]; }
};

/* Reads all ids while one was never read. */
void read_volume_ids(TVolumeWatch *watch)
{
    auto &ids = watch->volume_ids;
    ids[0] = g_system_volume_id;
    if (std::find(ids.begin(), ids.end(), -1) == ids.end())
        return;
    std::transform(kVolumeRoleTable.begin(), kVolumeRoleTable.end(), ids.begin(),
                   [](const TVolumeRole &role) { return volume_id_read(role.key).value_or(0); });
    g_system_volume_id = ids[0];
}

void apply_rule(const TVolumeCheck &check, bool on_zfs, const char *name, int64_t free_mb)
{
    const TVolumeRole &role = kVolumeRoleTable[check.role];
    TVolumeAlert &kept = check.watch->volume_alert_state[check.role][on_zfs ? 1 : 0];
    TVolumeAlert state = kept;
    const TVolumeAlert event = volume_rule_decide(role, free_mb, check.force, &state);
    if (event == TVolumeAlert::kError)
        check.watch->ostra_disable_pending = true;
    if (event != TVolumeAlert::kNone)
        volume_event_send(role, event, name, free_mb);
    kept = state; // if sending throws, the next check decides again
}

void check_plain_volume(const TVolumeCheck &check, const t_volume_info &volumes)
{
    char name[kVolumeNameSize];
    snprintf(name, sizeof(name), "DataVol%d", check.volume_id());
    std::string configured;
    if (read_volume_value(check.volume_id(), "volName", &configured))
        text_copy(name, configured);
    for (const t_volume_usage &usage : volumes.usage) {
        if (usage.volume_id == check.volume_id())
            apply_rule(check, false, name, usage.free_bytes / kMb);
    }
}

void check_zfs_volume(const TVolumeCheck &check)
{
    char name[kVolumeNameSize];
    snprintf(name, sizeof(name), "DataVol%d", check.volume_id());
    t_storage_disk_vol_info request, reply;
    find_zfs_volume(check.volume_id(), name, &request.target_vol_id);
    const char *function = kVolumeRoleTable[check.role].zfs_function;
    const t_auth auth = platform_auth(kLogVolume, function, 402);
    if (const uint32_t result = PAL_storage_get_volume_info(auth, request, reply); result != 0) {
        log_File_Debug(kLogVolume, "%s(%d), PAL_storage_get_volume_info failed,  ret=[%08x] target_vol_id=[%d]",
                       function, 411, result, request.target_vol_id);
        return;
    }
    /* 32 bits without a sign, whatever the text holds. */
    const auto free_mb = static_cast<uint32_t>(strtoll(reply.free_bytes.c_str(), nullptr, 10) / kMb);
    apply_rule(check, true, name, free_mb);
}

/* The number behind the two leading characters of the volume's diskId, in
 * hexadecimal. */
int32_t do_get_vpkg_system_zfs_devid(int32_t volume_id)
{
    std::string text;
    if (!read_volume_value(volume_id, "diskId", &text)) {
        log_File_Debug(kLogVolume, "%s:%s(%d) do_get_ini_info failed", "sysstat_vol.cpp",
                       "do_get_vpkg_system_zfs_devid", 741);
        return 0;
    }
    return text.size() > 2 ? static_cast<int32_t>(strtol(text.c_str() + 2, nullptr, 16)) : 0;
}

} // namespace

void do_vol_check(TVolumeWatch *watch, bool force, TWorker *self)
{
    read_volume_ids(watch);
    const auto &ids = watch->volume_ids;
    if (std::all_of(ids.begin(), ids.end(), [](int32_t id) { return id < 1; }))
        return;
    const t_auth auth = platform_auth(kLogVolume, "do_vol_check", 689);
    t_volume_info volumes;
    (void)platform_failed(kLogVolume, "do_vol_check", 697, "PAL_resmon_get_disk_usage",
                          PAL_resmon_get_disk_usage(auth, {}, volumes));

    const bool on_zfs = volume_on_zfs();
    for (size_t role = 0; role < ids.size(); ++role) {
        const TVolumeCheck check = {watch, role, force};
        if (ids[role] < 1)
            continue;
        if (on_zfs)
            check_zfs_volume(check);
        else
            check_plain_volume(check, volumes);
    }

    if (watch->ostra_disable_pending && !watch->ostra_disable_done) {
        watch->ostra_disable_done = true;
        /* A stop ends the delay but not the disable, which is then called at once and
         * completes. */
        self->pause_s(kDisableDelayS);
        const TMustComplete scope(self);
        (void)PAL_vbus_ostrapro_disable();
    }
}

void do_raid_check()
{
    constexpr const char *kFunction = "do_raid_check";
    /* Not the id that the volume checks keep for the life of the process: this check
     * follows the configuration. */
    const int32_t volume_id = volume_id_read(kSystemVolumeKey).value_or(0);
    const int32_t device_id = volume_on_zfs() ? do_get_vpkg_system_zfs_devid(volume_id) : volume_id;

    const t_auth auth = platform_auth(kLogVolume, kFunction, 768);
    t_storage_disk_vol_info request, volume;
    request.target_vol_id = volume_id;
    t_storage_enclosure_info enclosures;
    if (platform_failed(kLogVolume, kFunction, 777, "PAL_storage_get_volume_info",
                        PAL_storage_get_volume_info(auth, request, volume)) ||
        platform_failed(kLogVolume, kFunction, 788, "PAL_storage_get_enclosure_list",
                        PAL_storage_get_enclosure_list(auth, {device_id}, enclosures)))
        return;
    /* One record for all disks: the values of the last one remain. */
    t_storage_smart_info smart;
    for (int32_t disk = 0; disk < enclosures.disk_count; ++disk) {
        if (platform_failed(kLogVolume, kFunction, 799, "PAL_storage_get_disk_smart_info",
                            PAL_storage_get_disk_smart_info(auth, {disk}, smart)))
            return;
    }
    if (volume.status <= 0 && smart.alert == 1)
        (void)PAL_vbus_nc_notify("'$LOG_LEVEL_WARN'", "'$LOG_TYPE_LOG_NOTIFY'", "C001", "001030", kNotifyApplication,
                                 nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
}
