#pragma once

#include <cstdint>
#include <ctime>

/* Whether the appliance has a usable disk: read from the platform at start, every
 * ten minutes (DISK-worker) and on notice, kept in the shared memory for the
 * other processes, and announced to them. */

/* What the module knows before its first update, as a number and as a text. */
struct TDiskUnknown {
    int32_t number;
    char text[33];
};
inline constexpr TDiskUnknown kDiskUnknown = {9999, "99999999999999999999999999999999"};

/* Reads the disks and the surveillance storage setting, writes both into the shared
 * memory and announces it. A step that fails does not stop the ones after it. 0; -2
 * when the disks cannot be listed, else -1 without credentials. May take as long as
 * the platform does. Any thread may call, also several at once: the record is always
 * that of one update, and an update never replaces what a later one has written. */
int disk_flag_update();

/* What the newest update found: 1 or 0; kDiskUnknown.number before the first. */
int32_t disk_flag_present();

/* Starts DISK-worker; a failure is logged. Stop is harmless without a start. */
void disk_thread_start();
void disk_thread_stop();

/* Whether an update is due when DISK-worker wakes at this local time. */
bool disk_flag_is_due(const struct tm &local);
