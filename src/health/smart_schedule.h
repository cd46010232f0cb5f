#pragma once

#include <cstdint>
#include <ctime>

#include "health/smart_settings.h"

/* When the SMART watcher checks the disks and when it sends events: functions of the
 * bookkeeping, the settings and the given time. */

struct TSmartSchedule {
    int last_hour = 25;           // of the last hourly full check; 25: none yet
    bool scheduled_hour = false;  // the schedule hour has begun and its events are not sent
    int last_day = 35;            // of the month, on which events were sent; 35: none yet
    bool settings_changed = true; // the next check is a full one; set at start only
    uint64_t last_check_ms = 0;   // monotonic; 0: none yet
};

/* Whether a check may run: once a minute. */
bool smart_check_due(const TSmartSchedule &schedule, uint64_t now_ms);

/* Whether the check at this local time reads SMART of every disk: at the first
 * one in minute 0 of an hour, and at the first of all. Records it as done, and
 * whether it is the one of the schedule hour. */
bool smart_full_check(TSmartSchedule *schedule, const TSmartSettings &settings, const struct tm &now);

/* The events to send at this local time; records them as sent. */
struct TSmartAnnounce {
    bool disk_status = false;
    bool power_on_hours = false;
};
TSmartAnnounce smart_announce(TSmartSchedule *schedule, const TSmartSettings &settings, const struct tm &now);
