#include "platform/time_stamp.h"

#include <sys/time.h>

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

int get_date_and_time(struct tm *date, uint64_t mono_ms)
{
    /* Unsigned on purpose: a moment before or after now gives the same sum. */
    const uint64_t wall_ms = current_time_stamp() - current_time_stamp_mono_r() + mono_ms;
    const auto seconds = static_cast<time_t>(wall_ms / 1000);
    struct tm result = {};
    tzset(); // a time zone set since the last call counts
    if (localtime_r(&seconds, &result) == nullptr)
        return -1;
    *date = result;
    return 0;
}
