#include "common/local_time.h"

#include "platform/time_stamp.h"

struct tm local_time_of(time_t seconds)
{
    struct tm date = {};
    tzset(); // localtime_r alone would keep the zone of its first call for years
    localtime_r(&seconds, &date);
    return date;
}

time_t wall_clock_s()
{
    return static_cast<time_t>(current_time_stamp() / 1000);
}
