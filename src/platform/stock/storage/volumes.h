#pragma once

#include <string>
#include <string_view>
#include <sys/statvfs.h>
#include <vector>

#include "platform/pal.h"
#include "platform/stock/config/ini_file.h"

/* One volume of "/tarn/etc/volume.conf". */
struct T_VOLUME {
    int32_t id = 0;          // the n of its section "VOL_<n>"
    std::string name;        // may be empty
    std::string mount_point; // absolute, without "/" at its end
};

/* The volumes of that file: the sections that name a mount point, by number. */
std::vector<T_VOLUME> volumes_of(const T_INI &ini);

/* Space of a volume out of the figures of its file system. Free is what root can
 * still use, as the recorder does: what is reserved for root is part of it. */
t_volume_usage volume_usage(const T_VOLUME &volume, const struct statvfs &space);

/* What is mounted at a place. */
struct T_MOUNT {
    std::string device; // "major:minor"
    std::string kind;   // of the file system
    std::string source; // "/dev/md0", or whatever the file system calls it
};

/* Looks a mount point up in the text of /proc/self/mountinfo; the last one
 * counts, it lies on top. False when nothing is mounted there. */
bool mount_find(std::string_view mountinfo, std::string_view mount_point, T_MOUNT *out);
