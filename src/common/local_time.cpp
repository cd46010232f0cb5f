#include "common/local_time.h"

#include "platform/time_stamp.h"

struct tm local_time_of(time_t seconds)
{
    return get_local_time(seconds);
}

struct tm TLocalMinute::at(time_t seconds)
{
    if (!m_known || seconds < m_start_s || seconds - m_start_s >= kMinuteS) {
        m_date = get_local_time(seconds);
        m_start_s = seconds - m_date.tm_sec; // not of seconds / 60: an offset need not be whole minutes
        m_known = true;
    }
    m_date.tm_sec = static_cast<int>(seconds - m_start_s);
    return m_date;
}

time_t wall_clock_s()
{
    return static_cast<time_t>(current_time_stamp() / 1000);
}
