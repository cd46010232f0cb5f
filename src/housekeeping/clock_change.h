#pragma once

#include <cstdint>
#include <optional>

/* Logs that the wall clock was set: compares it with the monotonic clock in every
 * sampling round. Steps of up to 2.5 s in one round, such as time synchronisation
 * makes, are ignored. Always 0. */
int clock_change_check();

/* --- The rule ---------------------------------------------------------------- */

/* Compares the offset of the wall clock to the monotonic clock with that of the call
 * before (missing: the first call only stores it) and stores it. The change in ms,
 * positive if the clock was set back; nothing if it is small enough to ignore. */
std::optional<int64_t> clock_change_step(std::optional<uint64_t> *offset_ms, uint64_t real_ms, uint64_t mono_ms);
