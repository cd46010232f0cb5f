#pragma once

#include <cstdint>

#include "health/volume_rule.h"

class TWorker;

/* The state of the volume checks; it outlives a stop and new start of the monitors. For
 * one thread at a time. */
struct TVolumeWatch {
    /* The volume ids of the roles as last read, but for the system volume's,
     * which is g_system_volume_id. */
    int32_t index_volume_id = -1;
    int32_t cs_volume_id = -1;
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
