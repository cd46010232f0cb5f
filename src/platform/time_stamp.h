#pragma once

#include <cstdint>
#include <ctime>

/* Milliseconds of wall-clock time since the epoch: seconds * 1000 +
 * microseconds / 1000 of one reading. Moves when somebody sets the clock. */
uint64_t current_time_stamp();

/* Milliseconds of monotonic time. Never goes back, whatever happens to the wall
 * clock. The two names are the appliance's: `_r` is the one for any thread. */
uint64_t current_time_stamp_mono();
uint64_t current_time_stamp_mono_r();

/* The local calendar time of a wall-clock moment. A time zone that is changed
 * while the process runs counts from the next call on. Any thread may call. */
struct tm get_local_time(time_t seconds);

/* The local date and time of the moment at which the monotonic clock showed
 * `mono_ms`. Returns 0. */
int get_date_and_time(struct tm *date, uint64_t mono_ms);
