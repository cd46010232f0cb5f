#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/* Limits of a child's run time and output. */
struct TChildLimits {
    int timeout_s = 0;          // counted from its start
    size_t max_output = 0;      // bytes of standard output, if collected
    uint64_t stop_grace_ms = 0; // after a stop request, shared by all children of the caller
    int max_stuck = 4;          // children that were killed and have not died
    bool by_arguments = false;  // count per list of arguments, not per program
};

/* Runs argv[0] (below the host root) with the arguments argv[1]... and waits for its end. Standard input is the null
 * device; only descriptors 0 to 2 are inherited, and must be open in the caller; signals are reset to their defaults,
 * the umask is 022. With `output` the child's standard output is collected there and its standard error goes to the
 * null device; otherwise it inherits both.
 *
 * A child that exceeds its limits, or whose caller is asked to stop (platform/interrupt.h) and has no grace left, is
 * killed with the children in its process group, and reaped. One that does not die, waiting for a faulty device in the
 * kernel, is abandoned after a second and reaped by a later call. There are never more than `max_stuck` of these: a
 * call that could leave one more fails at once, which is logged.
 *
 * Returns the exit status, 128 + n for an end by signal n, or negative: -errno when it could not be started; -EBUSY
 * while too many earlier ones have not died; -ETIMEDOUT, -EFBIG or -EINTR when it was killed for its time, its output
 * or a stop; -EINTR also when a stop prevented its start; -ECHILD when it ended with its status lost, since SIGCHLD is
 * ignored. */
int child_run(const std::vector<const char *> &argv, const TChildLimits &limits, std::string *output);
