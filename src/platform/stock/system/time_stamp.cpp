#include "platform/time_stamp.h"

#include <sys/time.h>

#include "base/mutex.h"

uint64_t current_time_stamp()
{
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

uint64_t current_time_stamp_mono_r()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t current_time_stamp_mono()
{
    return current_time_stamp_mono_r();
}

struct tm get_local_time(time_t seconds)
{
    /* The C library locks its time zone itself; this lock makes it visible to the sanitizers. */
    static TMutex zone_lock;
    const TLock guard(zone_lock);
    struct tm date = {};
    tzset(); // localtime_r alone would keep the zone of its first call for years
    localtime_r(&seconds, &date);
    return date;
}

int get_date_and_time(struct tm *date, uint64_t mono_ms)
{
    /* Unsigned on purpose: wrapping gives the right sum for times before and after now. */
    const uint64_t wall_ms = current_time_stamp() - current_time_stamp_mono_r() + mono_ms;
    *date = get_local_time(static_cast<time_t>(wall_ms / 1000));
    return 0;
}
