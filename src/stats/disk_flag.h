#pragma once

#include <cstdint>
#include <ctime>

/* Whether the appliance has a usable disk: asked of the platform at start, every
 * ten minutes (DISK-worker) and on notice, kept in the shared memory for the
 * other processes, and announced to them. */

/* What the module knows before its first update, as a number and as a text. */
struct T_DISK_UNKNOWN {
    int32_t number;
    char text[33];
};
inline constexpr T_DISK_UNKNOWN kDiskUnknown = {9999, "99999999999999999999999999999999"};

/* Asks for the disks and for the surveillance storage setting, writes both into
 * the shared memory and announces it. Every step runs whatever became of those
 * before. 0; -2 when the disks could not be listed, else -1 when there were no
 * credentials. May take as long as the platform does. Any thread may call, several
 * at once too: the record is always one update's, and never an older one's than
 * what an update that began later has written. */
int disk_flag_update();

/* What the newest update found: 1 or 0; kDiskUnknown.number before the first. */
int32_t disk_flag_present();

/* Starts DISK-worker; 0, or the error that was logged. Stop is harmless without. */
int disk_thread_start();
void disk_thread_stop();

/* Whether DISK-worker, awake at this local time, has an update to make. */
bool disk_flag_is_due(const struct tm &local);
