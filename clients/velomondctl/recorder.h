#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/* A surveillance volume of the recorder that this command runs on. */
struct TVolume {
    int id = 0;
    std::string name, mount_point;
    bool mounted = false; // the sizes below are valid
    uint64_t size_bytes = 0;
    uint64_t free_bytes = 0; // without the share reserved for root
    double used_percent() const;
};

/* The volumes of a volume.conf ([VOL_<n>] with volName and mountPoint), by id. */
std::vector<TVolume> volumes_parse(std::string_view text);

/* The volumes of this machine with their sizes; empty if there is no volume.conf.
 * VELOMOND_ROOT is put before all paths if it is set. */
std::vector<TVolume> volumes_here();

/* The folder of the newest dump on this machine, without VELOMOND_ROOT; empty if
 * there is no dump. */
std::string newest_dump_here();
