#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/* When a surveillance volume is short of space, and the events for it. */

/* "Ostra Surveillance", quoted as the notification centre expects it. */
inline constexpr const char *kNotifyApplication = "\"'Ostra Surveillance'\"";

/* One severity of a role's events. */
struct TVolumeLimit {
    int64_t below_mb;        // free space less than this is an event
    uint32_t log_code;       // for the event-log tool
    const char *notify_code; // for the notification centre
};

/* What the surveillance service uses a volume for. */
struct TVolumeRole {
    const char *key;          // the product key that holds the volume's id
    const char *zfs_function; // the name of its check on ZFS in the debug log
    TVolumeLimit error;
    TVolumeLimit warning;
    bool names_volume_first; // in the texts of a warning for the event-log tool
};

/* System, index and recording ("CS") volume, in the order of their checks. */
inline constexpr size_t kVolumeRoles = 3;
extern const std::array<TVolumeRole, kVolumeRoles> kVolumeRoleTable;

/* The last event sent for a volume. */
enum class TVolumeAlert { kNone = 0, kWarning = 1, kError = 2 };

/* The event to send now for a volume with `free_mb` free; updates *state.
 *
 * An error is sent at every check; a warning once, and again when forced or
 * after an error. No free space at all means that the figure is unknown, not that the
 * volume is full: it clears the state. */
TVolumeAlert volume_rule_decide(const TVolumeRole &role, int64_t free_mb, bool force, TVolumeAlert *state);

/* Sends an error or a warning: to the event-log tool, then to the notification
 * centre. Waits for both and ignores their results. */
void volume_event_send(const TVolumeRole &role, TVolumeAlert event, const char *name, int64_t free_mb);
