#pragma once

#include <string>

#include "base/json.h"

/* Whether any camera was recorded in the last minute: queried from the recording
 * service once a minute (thread RECSTAT-worker), and reported to the dashboard receiver
 * once after start and then at each change. */

int recording_stat_init();   // starts the worker; always 0
int recording_stat_uninit(); // ends it; harmless without a worker; always 0

/* Adds "utc_time" (seconds of the last good answer, 0 before it) and
 * "camera_recording_update" ("normal", or "error" when nothing is recorded) to
 * the object at *out. 0, or -1 without an object. Any thread may call. */
int recording_stat_info(json_object **out);

/* --- Parsing, for the worker and for tests --------------------------------- */

/* Reads the state from an answer of the recording service. 0; else the line
 * under which the fault is logged, and *is_recording keeps what it had. */
int recording_answer_parse(const std::string &answer, bool *is_recording);
