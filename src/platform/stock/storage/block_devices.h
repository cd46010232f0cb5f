#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/storage/smartctl.h"

/* One disk of "/sys/block". Nothing in here is asked of the disk itself, so
 * looking does not wake it. */
struct T_BLOCK_DEVICE {
    std::string name;       // "sda"
    std::string model;      // as the kernel read it when the disk came
    std::string state;      // of its transport ("running", "offline", "live", ...); empty where it has none
    std::string port;       // where it is plugged in, see block_port(); no two disks share one
    std::string identity;   // WWN or serial number; no two disks share one
    bool suspended = false; // the kernel itself has put it to sleep: opening it would wake it
};

/* Whether a device of that name, at that place below "/sys", can be a disk: not a
 * virtual one (but for NVMe with several paths), not a flash translation layer, a
 * network image, or the boot or rpmb part of a memory card. */
bool block_is_disk(std::string_view name, std::string_view place);

/* The physical place out of a device's path below "/sys": without what the kernel
 * counts up each time something is plugged in again (SCSI hosts of SATA ports, USB
 * and virtual machines, NVMe and virtio instances, addresses of memory cards). */
std::string block_port(std::string_view device_path);

/* The disks: what block_is_disk() admits, with a `device` link, not removable, not
 * hidden (the single paths of a disk that is there as well), and with a size, but
 * for those that were given up. By port, numbers in it by their value ("ata2"
 * before "ata10"). 0 or -errno. */
int block_devices(std::vector<T_BLOCK_DEVICE> *out);

/* Whether a transport's state says that it has given the disk up. */
bool block_is_given_up(std::string_view state);

/* Status of a disk-list entry: negative while the disk is being taken out, 2 when
 * it expects to fail or its transport has given it up, 1 when it is worn out or an
 * attribute is below its threshold, else 0. */
int block_status(std::string_view state, const T_SMART_READING &known);
