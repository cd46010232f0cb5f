#include "health/volume_check.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/system_volume.h"
#include "common/worker.h"
#include "health/volume_config.h"
#include "health/volume_report.h"
#include "platform/pal.h"

namespace {

constexpr int64_t kMb = 1048576;
constexpr int kDisableDelayS = 10;

using TVolumeIds = std::array<int32_t, kVolumeRoles>;

/* One check of one volume. */
struct TVolumeCheck {
    TVolumeWatch *watch;
    size_t role; // row of the table
    int32_t volume_id;
    bool force;
};

/* The ids in the order of the roles; all are read again while one was never read. */
TVolumeIds volume_ids(TVolumeWatch *watch)
{
    TVolumeIds ids = {g_system_volume_id.load(), watch->index_volume_id, watch->cs_volume_id};
    if (std::find(ids.begin(), ids.end(), -1) == ids.end())
        return ids;
    std::transform(kVolumeRoleTable.begin(), kVolumeRoleTable.end(), ids.begin(),
                   [](const TVolumeRole &role) { return volume_id_read(role.key); });
    g_system_volume_id = ids[0];
    watch->index_volume_id = ids[1];
    watch->cs_volume_id = ids[2];
    return ids;
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

/* A failure is only logged: the calls that follow use the record as it is. */
t_auth authenticate(const char *function, int line)
{
    t_auth auth;
    if (const uint32_t result = PAL_auth_get_auth(auth); result != 0)
        volume_log_failed(function, line, "PAL_auth_get_auth", result);
    return auth;
}

void check_plain_volume(const TVolumeCheck &check, const t_volume_info &volumes)
{
    char name[kVolumeNameSize];
    snprintf(name, sizeof(name), "DataVol%d", check.volume_id);
    std::string configured;
    if (read_ini_value(kVolumeConf, volume_section(check.volume_id).c_str(), "volName", &configured))
        text_copy(name, configured);
    for (const t_volume_usage &usage : volumes.usage) {
        if (usage.volume_id == check.volume_id)
            apply_rule(check, false, name, usage.free_bytes / kMb);
    }
}

void check_zfs_volume(const TVolumeCheck &check)
{
    char name[kVolumeNameSize];
    snprintf(name, sizeof(name), "DataVol%d", check.volume_id);
    t_storage_disk_vol_info request, reply;
    find_zfs_volume(check.volume_id, name, &request.target_vol_id);
    const char *function = kVolumeRoleTable[check.role].zfs_function;
    const t_auth auth = authenticate(function, 402);
    if (const uint32_t result = PAL_storage_get_volume_info(auth, request, reply); result != 0) {
        log_File_Debug(kLogVolume, "%s(%d), PAL_storage_get_volume_info failed,  ret=[%08x] target_vol_id=[%d]",
                       function, 411, result, request.target_vol_id);
        return;
    }
    /* 32 bits without a sign, whatever the text holds. */
    const auto free_mb = static_cast<uint32_t>(strtoll(reply.free_bytes.c_str(), nullptr, 10) / kMb);
    apply_rule(check, true, name, free_mb);
}

} // namespace

void do_vol_check(TVolumeWatch *watch, bool force, TWorker *self)
{
    const TVolumeIds ids = volume_ids(watch);
    if (std::all_of(ids.begin(), ids.end(), [](int32_t id) { return id < 1; }))
        return;
    const t_auth auth = authenticate("do_vol_check", 689);
    t_volume_info volumes;
    if (const uint32_t result = PAL_resmon_get_disk_usage(auth, {}, volumes); result != 0)
        volume_log_failed("do_vol_check", 697, "PAL_resmon_get_disk_usage", result);

    const bool on_zfs = volume_on_zfs();
    for (size_t role = 0; role < ids.size(); ++role) {
        const TVolumeCheck check = {watch, role, ids[role], force};
        if (check.volume_id < 1)
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
