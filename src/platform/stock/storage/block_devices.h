#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/stock/storage/smartctl.h"

/* One disk of "/sys/block". All of this is known to the kernel, so reading it does not wake the disk. */
struct TBlockDevice {
    std::string name;       // "sda"
    std::string model;      // as the kernel read it when the disk was attached
    std::string state;      // of its transport ("running", "offline", "live", ...); empty if missing
    std::string port;       // where it is plugged in, see block_port(); unique
    std::string identity;   // WWN or serial number; unique
    bool suspended = false; // put to sleep by the kernel: opening it would wake it
};

/* Derives the physical place from a device's path below "/sys": omits the numbers that the kernel counts up at each
 * plug (SCSI hosts of SATA ports, USB and virtual machines, NVMe and virtio instances, addresses of memory cards). */
std::string block_port(std::string_view device_path);

/* Lists the disks: devices that have a `device` link, are not virtual (except NVMe with several paths), no boot or rpmb
 * part of a memory card, no flash translation layer, no network image, not removable, not hidden (the single paths of a
 * disk that is listed as well), and have a size, unless their transport has given them up. Sorted by port, with numbers
 * in it by value ("ata2" before "ata10"). Returns 0 or -errno. */
int block_devices(std::vector<TBlockDevice> *out);

/* Whether a transport's state means that it has given up the disk. */
bool block_is_given_up(std::string_view state);

/* Status of a disk-list entry: negative while the disk is being removed, 2 when it predicts its failure or its
 * transport has given it up, 1 when it is worn out or an attribute is below its threshold, otherwise 0. */
int block_status(std::string_view state, const TSmartReading &known);
