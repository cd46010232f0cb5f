#pragma once

#include <cstdint>

#include "health/volume_rule.h"

class TWorker;

/* What the volume checks remember; it lives as long as the process, also over a
 * stop and a new start of the monitors. One thread's at a time. */
struct T_VOLUME_WATCH {
    /* The volume ids of the roles as last read, but for the system volume's,
     * which is g_system_volume_id. */
    int32_t index_volume_id = -1;
    int32_t cs_volume_id = -1;
    /* A plain volume and a ZFS volume of the same role are told apart. */
    TVolumeAlert volume_alert_state[kVolumeRoles][2] = {}; // [role][on ZFS]
    bool ostra_disable_pending = false;                    // since the first error
    bool ostra_disable_done = false;
};

/* Looks once at the free space of every configured volume and sends what the
 * rule says; `force` repeats warnings that were sent already. After the first
 * error of the process it disables the surveillance service, ten seconds later
 * and once. `self` is the worker on whose thread this runs. */
void do_vol_check(T_VOLUME_WATCH *watch, bool force, TWorker *self);
