#pragma once

#include <cstdint>

#include "health/volume_config.h"
#include "health/volume_rule.h"

/* The events of the volume checks, and log lines for failures of the platform. */

/* "Ostra Surveillance" and its version, quoted as the notification centre expects
 * it. */
inline constexpr const char *kNotifyApplication = "\"'Ostra Surveillance'\"";
inline constexpr const char *kNotifyVersion = "\"'5.2.0.3071'\"";

/* The texts of one event. The sizes are limits that the receivers rely on. */
struct TVolumeTexts {
    char name[kVolumeNameSize] = "";
    char quoted_name[256] = "";
    char free_text[16] = "";
    char free_value[32] = "", free_unit[32] = "";
    char threshold_text[16] = ""; // whole GB
    char threshold_value[32] = "", threshold_unit[32] = "";
};
TVolumeTexts volume_texts(const char *name, int64_t free_mb, int64_t threshold_mb);

/* Sends an error or a warning: to the event-log tool, then to the notification
 * centre. Waits for both and ignores their results. */
void volume_event_send(const TVolumeRole &role, TVolumeAlert event, const char *name, int64_t free_mb);

/* Writes to the volume log that the call `call` returned `result`. */
void volume_log_failed(const char *function, int line, const char *call, uint32_t result);
