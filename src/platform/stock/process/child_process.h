#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/* How long a child may run and how much it may say. */
struct T_CHILD_LIMITS {
    int timeout_s;             // counted from its start
    size_t max_output;         // bytes of standard output; only where output is taken
    uint64_t stop_grace_ms;    // once its caller is asked to stop; all its children together
    int max_stuck = 4;         // of those that were killed and have not died
    bool by_arguments = false; // those with the same arguments count, not all of the program
};

/* Runs argv[0] (behind the host root) with the arguments argv[1]... and waits for
 * its end. Standard input is the null device; no descriptor but 0 to 2 is handed
 * on, and these are open in the caller; signals are as at boot, the umask is 022. With `output` the child's standard
 * output is put there and its standard error goes to the null device, else it inherits both.
 *
 * A child that runs out of its limits, or whose caller is asked to stop
 * (platform/interrupt.h) and has no grace left, is killed with its children of the
 * same process group, and reaped. One that does not die, waiting for a sick device
 * in the kernel, is left alone after a second and reaped at a later call. There are
 * never more than `max_stuck` of these: a call that could leave one more fails at
 * once, which is logged.
 *
 * Returns the exit status, 128 + n for an end by signal n, or negative: -errno
 * when it could not be started, -EBUSY while too many earlier ones have not died, -ETIMEDOUT, -EFBIG or -EINTR when it
 * was killed for its time, its output or a stop, -EINTR also when it was not started for a stop, -ECHILD when it ended
 * but nobody can tell how, since SIGCHLD is ignored. */
int child_run(const std::vector<const char *> &argv, const T_CHILD_LIMITS &limits, std::string *output);
