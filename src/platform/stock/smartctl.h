#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/* What one run of smartctl told. */
struct T_SMART_READING {
    std::optional<bool> passed; // the disk's own verdict
    std::optional<int32_t> power_on_hours;
    bool attribute_low = false; // an attribute is at or below its threshold now
};

/* Takes the document of `smartctl --json` apart, by the protocol that it names
 * (ATA, SCSI, NVMe). Figures that it does not hold stay empty. 0, or -EINVAL for
 * anything that is no such document; *out is only touched on 0. */
int smart_parse(std::string_view text, T_SMART_READING *out);

/* Whether an exit status comes with a document worth reading. It is a bit mask:
 * bit 0 is a wrong command line, bit 1 a device that could not be opened or is
 * asleep; the others tell what was found. */
bool smart_has_data(int exit_status);

/* Asks a disk ("sda"), for a minute at most. A sleeping disk is left asleep.
 * Calls for the same disk take turns, so that it never has two children at it.
 * 0; -EAGAIN when the disk is asleep or could not be opened; another -errno. */
int smartctl_read(const std::string &disk, T_SMART_READING *out);
