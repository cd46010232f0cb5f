#pragma once

#include <cstdint>

/* The record that the daemon shares with the appliance's other processes. */
struct t_velomond_shm {
    int32_t disk_present = 0;
    int32_t reserved = 0;
    int32_t storage_setting = 0;
};

/* Reads or writes the record as a whole; it reads as zeros before the first write. Both return 0, otherwise a negative
 * errno; on failure *record is unchanged. */
int velomond_shm_get(t_velomond_shm *record);
int velomond_shm_set(const t_velomond_shm *record);
