#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/* A surveillance volume of the recorder that this command runs on. */
struct TVolume {
    int id = 0;
    std::string name, mount_point;
    bool mounted = false; // the figures below are those of a file system
    uint64_t size_bytes = 0;
    uint64_t free_bytes = 0; // what any user can still use
    double used_percent() const;
};

/* The volumes of a volume.conf ([VOL_<n>] with volName and mountPoint), by id. */
std::vector<TVolume> volumes_parse(std::string_view text);

/* Those of this machine's own volume.conf, with their space by statvfs; empty where
 * there is no such file. VELOMOND_ROOT stands before all paths where it is set. */
std::vector<TVolume> volumes_here();

/* The folder of the newest dump on this machine, as the monitor calls it; empty
 * where there is none. */
std::string newest_dump_here();
