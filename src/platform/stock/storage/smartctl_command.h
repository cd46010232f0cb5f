#pragma once

#include <vector>

/* The command line of smartctl for a device ("/dev/sda"), for the daemon itself and for the privileged helper: health,
 * attributes and identity. */
inline std::vector<const char *> smartctl_command(const char *node, bool may_wake)
{
    return {"/usr/sbin/smartctl", "--json", "-n", may_wake ? "never" : "standby", "-H", "-iA", node};
}
