#pragma once

#include <cstdint>
#include <ctime>

/* The local calendar time of a wall-clock moment. A time zone that is changed
 * while the daemon runs counts from the next call on. */
struct tm local_time_of(time_t seconds);

/* The wall clock in whole seconds, as the platform tells it. */
time_t wall_clock_s();
