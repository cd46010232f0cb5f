#pragma once

#include <array>
#include <cstdint>

#include "health/volume_rule.h"

class TWorker;

/* The state of the volume checks; it outlives a stop and new start of the monitors. For
 * one thread at a time. */
struct TVolumeWatch {
    /* The volume ids of the roles as last read; the system volume's is a copy of
     * g_system_volume_id. */
    std::array<int32_t, kVolumeRoles> volume_ids = {-1, -1, -1};
    /* Separate for a plain and a ZFS volume of the same role. */
    TVolumeAlert volume_alert_state[kVolumeRoles][2] = {}; // [role][on ZFS]
    bool ostra_disable_pending = false;                    // since the first error
    bool ostra_disable_done = false;
};

/* Checks the free space of every configured volume once and sends the events of the
 * rule; `force` repeats warnings that were sent already. Ten seconds after the first
 * error of the process it disables the surveillance service, once. `self` is the worker
 * on whose thread this runs. */
void do_vol_check(TVolumeWatch *watch, bool force, TWorker *self);

/* Checks the array of the system volume and the health of the disks, and sends a
 * warning to the notification centre if the array's status is 0 or below while the
 * last disk predicts its failure. */
void do_raid_check();
