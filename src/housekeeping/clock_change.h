#pragma once

#include <cstdint>
#include <optional>

/* Records in the debug log that somebody set the wall clock: compares it with the
 * monotonic clock in every sampling round. Steps of up to 2.5 s in one round,
 * such as time synchronisation makes, pass unnoticed. Always 0. */
int clock_change_check();

/* --- The rule ---------------------------------------------------------------- */

struct T_CLOCK_OFFSET {
    bool first = true;       // nothing seen yet: the first look only learns
    int64_t previous_ms = 0; // wall clock minus monotonic clock
};

/* Compares with the look before and remembers this one. The change in ms,
 * positive when the clock was set back, when it is worth a line. */
std::optional<int64_t> clock_change_step(T_CLOCK_OFFSET *offset, uint64_t real_ms, uint64_t mono_ms);
