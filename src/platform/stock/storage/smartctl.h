#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

/* What smartctl's document says of a disk. Each figure by itself may be missing. */
struct T_SMART_READING {
    std::optional<bool> passed; // the disk's own verdict
    std::optional<int32_t> power_on_hours;
    bool worn = false; // an attribute is at or below its threshold now, or the rated life is used up
};

/* Takes the document of `smartctl --json` apart, by the protocol that it names
 * (ATA, SCSI, NVMe). Figures that it does not hold stay empty. 0, or -EINVAL for
 * anything that is no such document; *out is only touched on 0. */
int smart_parse(std::string_view text, T_SMART_READING *out);

/* What a look at a disk came to. */
enum class T_SMART_OUTCOME {
    read,       // at least one figure is known
    asleep,     // and was left asleep
    no_smart,   // a disk that has none (virtual ones, some bridges)
    unreadable, // it was asked, and gave nothing
    no_answer,  // smartctl could not be started, or not waited for
};

/* The outcome by smartctl's exit status and its document; *out is only touched
 * where it was read. The status is a bit mask: bit 0 is a wrong command line or a
 * device of a kind that it does not know, bit 1 a device that could not be opened
 * or is asleep, bit 2 a command that failed; the others depend on what was found. */
T_SMART_OUTCOME smart_outcome(int exit_status, std::string_view text, T_SMART_READING *out);
