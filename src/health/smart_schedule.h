#pragma once

#include <cstdint>
#include <ctime>

#include "health/smart_settings.h"

/* When the SMART watcher looks at the disks and when it announces what it found.
 * All of it follows from the bookkeeping, the settings and the moment given. */

struct T_SMART_SCHEDULE {
    int last_hour = 25;           // of the last hourly full check; 25: none yet
    bool scheduled_hour = false;  // the schedule hour has come and its events have not gone out
    int last_day = 35;            // of the month, on which events went out; 35: none yet
    bool settings_changed = true; // the next check is a full one; set at start only
    uint64_t last_check_ms = 0;   // monotonic; 0: none yet
};

/* Whether a check may run: once a minute. */
bool smart_check_due(const T_SMART_SCHEDULE &schedule, uint64_t now_ms);

/* Whether the check at this local time reads SMART of every disk: at the first
 * one in minute 0 of an hour, and at the first of all. Books it as done, and
 * notes when it is the schedule hour's. */
bool smart_full_check(T_SMART_SCHEDULE *schedule, const T_SMART_SETTINGS &settings, const struct tm &now);

/* What to announce at this local time; books it as done. */
struct T_SMART_ANNOUNCE {
    bool disk_status = false;
    bool power_on_hours = false;
};
T_SMART_ANNOUNCE smart_announce(T_SMART_SCHEDULE *schedule, const T_SMART_SETTINGS &settings, const struct tm &now);
