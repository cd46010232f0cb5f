#include "common/local_time.h"

#include "platform/time_stamp.h"

struct tm local_time_of(time_t seconds)
{
    return get_local_time(seconds);
}

time_t wall_clock_s()
{
    return static_cast<time_t>(current_time_stamp() / 1000);
}
