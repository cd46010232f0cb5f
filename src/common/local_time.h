#pragma once

#include <cstdint>
#include <ctime>

constexpr time_t kMinuteS = 60;

/* The local calendar time of a wall-clock moment. A time zone that is changed
 * while the daemon runs counts from the next call on. */
struct tm local_time_of(time_t seconds);

/* The same for a thread that asks often: the calendar is computed, and the
 * file of the time zone looked at, once in each local minute. A time zone that is
 * changed counts from the next minute on. One thread's. */
class TLocalMinute {
public:
    struct tm at(time_t seconds);

private:
    time_t m_start_s = 0; // of the minute that is in m_date
    bool m_known = false;
    struct tm m_date = {};
};

/* The wall clock in whole seconds, from the platform. */
time_t wall_clock_s();
