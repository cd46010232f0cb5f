#pragma once

#include <string>
#include <string_view>

/* State of a volume as PAL_storage_get_volume_info reports it. Faults are negative; an array that is being rebuilt is
 * positive. */
constexpr int kVolumeFailed = -2; // degraded or worse
constexpr int kVolumeNotMounted = -1;
constexpr int kVolumeReady = 0;
constexpr int kVolumeRebuilding = 1; // or being reshaped

/* Ready, failed or rebuilding, by the attributes of an array's "md" folder, trimmed; empty when missing (striped arrays
 * have neither sync_action nor degraded). An array without missing members stays ready during a check or a repair. */
int md_status(std::string_view array_state, std::string_view sync_action, std::string_view degraded);

/* The worse of two states: failed, then not mounted, rebuilding, ready. */
int volume_worse(int a, int b);

/* State of the storage under a block device, given by its folder in sysfs ("/sys/dev/block/9:0"): the array itself, the
 * array of a partition, and arrays below mapper devices. The worst state counts; ready without any array. */
int md_status_below(const std::string &device_folder);
