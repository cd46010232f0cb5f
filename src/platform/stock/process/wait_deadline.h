#pragma once

#include <ctime>

/* When a wait of whole seconds ends that begins `now`: at the beginning of a second
 * of the clock, so that the waits of all threads end together and the processor
 * wakes once for them. The last such moment within the time asked for: what is to be
 * noticed is never noticed later, and a thread that works for less than a second
 * after each wait keeps its period. The wait is shorter by less than a second. */
inline struct timespec wait_deadline(const struct timespec &now, int seconds)
{
    return seconds > 0 ? timespec{now.tv_sec + seconds, 0} : now;
}
