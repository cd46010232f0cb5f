#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/json.h"
#include "base/mutex.h"
#include "common/local_time.h"

/* The fans of the appliance, reduced to normal or error. A change is reported to
 * the dashboard receiver once, without retry; the platform's text about the
 * hardware is kept for queries. */

/* The watcher's state. Only its thread writes; queries read the first three. */
struct TSyshealthState {
    std::atomic<bool> fan_error{false};                                         // as last reported or adopted
    std::atomic<uint32_t> last_utc_time{static_cast<uint32_t>(wall_clock_s())}; // of the last report attempt
    TMutex text_lock;
    std::string sys_health_text GUARDED_BY(text_lock); // of the last answer of the platform
    /* The watcher's own. */
    bool force_update = true;   // the next check reports, whatever it finds
    bool query_failed = false;  // the last query of the platform failed
    uint64_t last_check_ms = 0; // monotonic; 0: none yet
};

int sysstat_syshealth_init();   // always 0, also if the thread cannot be created
int sysstat_syshealth_uninit(); // always 0; harmless without init

/* Answers a query: "fan_update" (time of the last report, state) or "sys_health"
 * (the platform's text); *out gets a new object. -4 without a method, -3 for
 * another one. Any thread may call. */
int sysstat_syshealth_proc(const char *method, json_object **out);

/* --- For the thread and for tests -------------------------------------------- */

/* Whether a fan has failed: a status code of 9, read as atoi reads it. */
bool syshealth_fan_failed(const std::vector<std::pair<std::string, std::string>> &fans);

/* One pass of the watcher. */
void syshealth_check(TSyshealthState *state, uint64_t now_ms);
