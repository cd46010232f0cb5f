#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

/* The volume watcher: a thread that checks the free space of the surveillance volumes
 * once a minute and the system volume's array once a day. */

/* Starts and stops VOL-worker. A start that fails is logged in the log of the camera
 * connections, as that of the other storage watchers. Both always return 0. */
int vol_thread_start();
int vol_thread_stop();

/* The watcher has nothing to dump; the folder is only traced. Always 0. */
int sysstat_vol_dump(const char *folder);

/* --- The schedule ----------------------------------------------------------- */

struct TVolSchedule {
    std::optional<int64_t> warmup_origin_s; // monotonic; set by the first call
    int64_t next_check_s = 0;               // wall clock, on a minute; 0: now
    int64_t next_hour_s = 0;                // wall clock, on an hour; 0: now
    int last_raid_day = 32;                 // of the month; no calendar day at first
};

/* What is due at one moment, in this order. */
struct TVolDue {
    bool check;
    bool force; // the check repeats standing warnings
    bool raid;
};

/* Whether more than three minutes of monotonic time have passed since the first call:
 * the appliance's other services need them to start. */
bool vol_warmup_elapsed(TVolSchedule *schedule, int64_t mono_s);

/* The volumes at every minute, by force at once and in the first check of every
 * hour; the array in the minute 00:25 of local time, once a day. However far the
 * clock is set back, the next check comes within two minutes. */
TVolDue vol_schedule_tick(TVolSchedule *schedule, int64_t wall_s, const struct tm &local);
