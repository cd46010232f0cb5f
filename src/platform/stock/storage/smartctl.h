#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

/* The command line of smartctl for a device ("/dev/sda"), for the daemon itself and for the privileged helper: health,
 * attributes and identity. */
inline std::vector<const char *> smartctl_command(const char *node, bool may_wake)
{
    return {"/usr/sbin/smartctl", "--json", "-n", may_wake ? "never" : "standby", "-H", "-iA", node};
}

/* Values of smartctl's document for a disk. Each of them may be missing. */
struct TSmartReading {
    std::optional<bool> passed; // the disk's own verdict
    std::optional<int32_t> power_on_hours;
    bool worn = false; // an attribute is at or below its threshold now, or the rated life is used up
};

/* The outcome of querying a disk. */
enum class TSmartOutcome {
    kRead,       // at least one figure is known
    kAsleep,     // not woken
    kNoSmart,    // not supported (virtual disks, some bridges)
    kUnreadable, // it was queried, without a result
    kNoAnswer,   // smartctl could not be started or did not finish
};

/* Determines the outcome from smartctl's exit status and the document of `smartctl --json`, which is read by the
 * protocol that it names (ATA, SCSI, NVMe); missing figures stay empty. *out is only changed when the disk was read.
 * The status is a bit mask: bit 0 is a wrong command line or an unknown kind of device, bit 1 a device that could not
 * be opened or is asleep, bit 2 a command that failed; the others depend on the findings. */
TSmartOutcome smart_outcome(int exit_status, std::string_view text, TSmartReading *out);
