#pragma once

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/statvfs.h>

/* What was found at the place where a file system is mounted. */
struct TPlace {
    int error = 0; // errno of the first failure; the rest is then not valid
    bool is_folder = false;
    char real[PATH_MAX] = ""; // with all symbolic links resolved, host root included
    struct statvfs space = {};
};

/* Looks at a place (plain path). A file system whose disk or server does not answer blocks each call indefinitely, even
 * against a stop: so a separate thread looks, and the caller waits until 5 s after its start. A stuck thread is left
 * behind, detached: there is never more than one per place, and as long as it exists, looking there fails at once.
 *
 * Returns 0 with the findings in *out (which may be an error); -ETIMEDOUT; -EINTR when the caller is asked to stop
 * (platform/interrupt.h); -errno when the thread cannot be created. */
int place_look(const std::string &path, TPlace *out);

/* The same with another function and another limit; `path` only identifies the place. */
int place_look_by(const std::string &path, uint64_t limit_ms, std::function<void(TPlace *)> work, TPlace *out);
