#pragma once

#include <vector>

/* How smartctl is run for a device ("/dev/sda"), by the daemon itself and by the
 * helper that has the powers for it: health, attributes, and what the disk is. */
inline std::vector<const char *> smartctl_command(const char *node, bool may_wake)
{
    return {"/usr/sbin/smartctl", "--json", "-n", may_wake ? "never" : "standby", "-H", "-iA", node};
}
