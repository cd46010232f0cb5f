#pragma once

#include <map>
#include <string>
#include <string_view>
#include <sys/statvfs.h>

#include "platform/pal.h"
#include "platform/stock/config/ini_file.h"

/* One volume of "/tarn/etc/volume.conf". */
struct TVolume {
    int32_t id = 0;          // the n of its section "VOL_<n>"
    std::string name;        // may be empty
    std::string mount_point; // absolute, without "/" at its end
};

/* The volumes of that file by their ids: sections with a mount point. */
std::map<int32_t, TVolume> volumes_of(const TIni &ini);

/* Space of a volume from the figures of its file system. Free is what root can still use, as for the recorder; it
 * includes the space reserved for root. */
t_volume_usage volume_usage(const TVolume &volume, const struct statvfs &space);

/* What is mounted at a place. */
struct TMount {
    std::string device; // "major:minor"
    std::string kind;   // of the file system
    std::string source; // "/dev/md0", or the file system's own name for it
};

/* Finds a mount point in the text of /proc/self/mountinfo; the last mount there is the visible one. False when nothing
 * is mounted there. */
bool mount_find(std::string_view mountinfo, std::string_view mount_point, TMount *out);
