#pragma once

#include <cstdint>
#include <ctime>

/* Milliseconds of wall-clock time since the epoch: seconds * 1000 +
 * microseconds / 1000 of one reading. Jumps when the clock is set. */
uint64_t current_time_stamp();

/* Milliseconds of monotonic time: unaffected by changes of the wall clock. Both names are the appliance's; `_r` is the
 * one for any thread. */
uint64_t current_time_stamp_mono();
uint64_t current_time_stamp_mono_r();

/* The local calendar time of a wall-clock time. A time zone changed at run time takes effect with the next call. Any
 * thread may call. */
struct tm get_local_time(time_t seconds);

/* The local date and time of the moment at which the monotonic clock showed
 * `mono_ms`. Returns 0. */
int get_date_and_time(struct tm *date, uint64_t mono_ms);
