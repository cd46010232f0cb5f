#pragma once

#include <chrono>
#include <cstdint>

#include "platform/vos_cond.h"

/* When a wait ends that begins `now`. One of whole seconds ends at the beginning of a second of the clock, so that the
 * waits of all threads end together and the processor wakes once for them: at the last such moment within the time
 * asked for. What is to be noticed is never noticed later, and a thread that works for less than a second after each
 * wait keeps its period. The wait is shorter by less than a second. */
inline std::chrono::steady_clock::time_point wait_deadline(std::chrono::steady_clock::time_point now, uint64_t time_ms)
{
    const auto end = now + std::chrono::milliseconds(time_ms);
    return time_ms > 0 && time_ms % 1000 == 0 ? std::chrono::floor<std::chrono::seconds>(end) : end;
}

/* vos_cond_wait for a time in milliseconds. */
int vos_cond_wait_ms(vos_cond_t *cond, uint64_t time_ms);
