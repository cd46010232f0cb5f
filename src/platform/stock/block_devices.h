#pragma once

#include <string>
#include <string_view>
#include <vector>

/* One disk of "/sys/block". Nothing in here is asked of the disk itself, so
 * looking does not wake it. */
struct T_BLOCK_DEVICE {
    std::string name;     // "sda"
    std::string model;    // as the kernel read it when the disk came
    std::string state;    // of its transport ("running", "offline", "live", ...); empty where it has none
    std::string identity; // changes when another disk takes the same name
};

/* Whether a name of "/sys/block" can be a disk: no loop, RAM or compressed RAM
 * device, no mapper or md node, no optical drive. */
bool block_name_is_disk(std::string_view name);

/* The disks that have a size, by name. 0 or -errno. */
int block_devices(std::vector<T_BLOCK_DEVICE> *out);

/* What is known of a disk's health without asking it. */
enum class T_DISK_VERDICT { unknown, passed, attribute_low, failing };

/* Status of a disk-list entry: negative when its transport has given it up,
 * 2 when it expects to fail, 1 when an attribute is below its threshold, else 0. */
int block_status(std::string_view state, T_DISK_VERDICT verdict);
