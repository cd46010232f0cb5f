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

using T_VOLUME_IDS = std::array<int32_t, kVolumeRoles>;

/* One check of one volume. */
struct T_LOOK {
    T_VOLUME_WATCH *watch;
    size_t role; // row of the table
    int32_t volume_id;
    bool force;
};

/* The ids in the order of the roles, read anew for as long as one of them never
 * was. */
T_VOLUME_IDS volume_ids(T_VOLUME_WATCH *watch)
{
    T_VOLUME_IDS ids = {g_system_volume_id.load(), watch->index_volume_id, watch->cs_volume_id};
    if (std::find(ids.begin(), ids.end(), -1) == ids.end())
        return ids;
    std::transform(kVolumeRoleTable.begin(), kVolumeRoleTable.end(), ids.begin(),
                   [](const T_VOLUME_ROLE &role) { return volume_id_read(role.key); });
    g_system_volume_id = ids[0];
    watch->index_volume_id = ids[1];
    watch->cs_volume_id = ids[2];
    return ids;
}

void apply_rule(const T_LOOK &look, bool on_zfs, const char *name, int64_t free_mb)
{
    const T_VOLUME_ROLE &role = kVolumeRoleTable[look.role];
    TVolumeAlert &kept = look.watch->volume_alert_state[look.role][on_zfs ? 1 : 0];
    TVolumeAlert state = kept;
    const TVolumeAlert event = volume_rule_decide(role, free_mb, look.force, &state);
    if (event == TVolumeAlert::error)
        look.watch->ostra_disable_pending = true;
    if (event != TVolumeAlert::none)
        volume_event_send(role, event, name, free_mb);
    kept = state; // where sending throws, the next check decides again
}

/* A failure is told only: the calls that follow run with the record as it is. */
t_auth authenticate(const char *function, int line)
{
    t_auth auth;
    if (const uint32_t result = PAL_auth_get_auth(auth); result != 0)
        volume_log_failed(function, line, "PAL_auth_get_auth", result);
    return auth;
}

void check_plain_volume(const T_LOOK &look, const t_volume_info &volumes)
{
    char name[kVolumeNameSize];
    snprintf(name, sizeof(name), "DataVol%d", look.volume_id);
    std::string configured;
    if (read_ini_value(kVolumeConf, volume_section(look.volume_id).c_str(), "volName", &configured))
        text_copy(name, configured);
    for (const t_volume_usage &usage : volumes.usage) {
        if (usage.volume_id == look.volume_id)
            apply_rule(look, false, name, usage.free_bytes / kMb);
    }
}

void check_zfs_volume(const T_LOOK &look)
{
    char name[kVolumeNameSize];
    snprintf(name, sizeof(name), "DataVol%d", look.volume_id);
    t_storage_disk_vol_info request, reply;
    find_zfs_volume(look.volume_id, name, &request.target_vol_id);
    const char *function = kVolumeRoleTable[look.role].zfs_function;
    const t_auth auth = authenticate(function, 402);
    if (const uint32_t result = PAL_storage_get_volume_info(auth, request, reply); result != 0) {
        log_File_Debug(kLogVolume, "%s(%d), PAL_storage_get_volume_info failed,  ret=[%08x] target_vol_id=[%d]",
                       function, 411, result, request.target_vol_id);
        return;
    }
    /* 32 bits without a sign, whatever the text holds. */
    const auto free_mb = static_cast<uint32_t>(strtoll(reply.free_bytes.c_str(), nullptr, 10) / kMb);
    apply_rule(look, true, name, free_mb);
}

} // namespace

void do_vol_check(T_VOLUME_WATCH *watch, bool force, TWorker *self)
{
    const T_VOLUME_IDS ids = volume_ids(watch);
    if (std::all_of(ids.begin(), ids.end(), [](int32_t id) { return id < 1; }))
        return;
    const t_auth auth = authenticate("do_vol_check", 689);
    t_volume_info volumes;
    if (const uint32_t result = PAL_resmon_get_disk_usage(auth, {}, volumes); result != 0)
        volume_log_failed("do_vol_check", 697, "PAL_resmon_get_disk_usage", result);

    const bool on_zfs = volume_on_zfs();
    for (size_t role = 0; role < ids.size(); ++role) {
        const T_LOOK look = {watch, role, ids[role], force};
        if (look.volume_id < 1)
            continue;
        if (on_zfs)
            check_zfs_volume(look);
        else
            check_plain_volume(look, volumes);
    }

    if (watch->ostra_disable_pending && !watch->ostra_disable_done) {
        watch->ostra_disable_done = true;
        /* A stop cuts the delay short, not the disable: it was decided on, so it is
         * called at once then and is not given up for the stop. */
        self->pause_s(kDisableDelayS);
        self->see_through([] { (void)PAL_vbus_ostrapro_disable(); });
    }
}
