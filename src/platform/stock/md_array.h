#pragma once

#include <string>
#include <string_view>

/* State of a volume as PAL_storage_get_volume_info tells it. */
constexpr int kVolumeNotMounted = -1;
constexpr int kVolumeReady = 0;
constexpr int kVolumeDegraded = 1;
constexpr int kVolumeRebuilding = 2;

/* Attributes of an array's "md" folder, trimmed; empty where there is none
 * (striped arrays have neither sync_action nor degraded). */
struct T_MD_TEXTS {
    std::string array_state;
    std::string sync_action;
    std::string degraded;
};

/* Ready, degraded or rebuilding. A check or a repair of an array that misses
 * nothing leaves it ready. */
int md_status(const T_MD_TEXTS &texts);

/* State of whatever lies under a block device, given by its folder in sysfs
 * ("/sys/dev/block/9:0"): the array itself, the one that a partition belongs to,
 * and arrays below mapper devices. The worst counts; ready without any array. */
int md_status_below(const std::string &device_folder);
