#pragma once

#include <cstdint>

/* What the daemon keeps in shared memory for the appliance's other processes. */
struct t_velomond_shm {
    int32_t disk_present = 0;
    int32_t reserved = 0;
    int32_t storage_setting = 0;
};

/* The last record written, whole; zeros when there is none yet. Both return 0,
 * else a negative errno; on failure *record keeps what it had. */
int velomond_shm_get(t_velomond_shm *record);
int velomond_shm_set(const t_velomond_shm *record);
