#pragma once

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/statvfs.h>

/* What is seen of the place where a file system is mounted. */
struct T_PLACE {
    int error = 0; // errno of whatever failed first; then the rest is not valid
    bool is_folder = false;
    char real[PATH_MAX] = ""; // with all symbolic links resolved, behind the host root
    struct statvfs space = {};
};

/* Looks at a place (plain path). A file system whose disk or server does not
 * answer holds each call for as long as it likes, also against a stop: so the look
 * is made by a thread of its own, and its caller waits for 5 s from its beginning.
 * One that is stuck is left behind, detached: there is never more than one at a
 * place, and as long as there is, looking there fails at once.
 *
 * 0, with what was seen in *out (its error too); -ETIMEDOUT; -EINTR when the caller
 * is asked to stop (platform/interrupt.h); -errno when there is no thread to be had. */
int place_look(const std::string &path, T_PLACE *out);

/* The same with another look and another limit; `path` only names the place. */
int place_look_by(const std::string &path, uint64_t limit_ms, std::function<void(T_PLACE *)> look, T_PLACE *out);
