#include "housekeeping/clock_change.h"

#include <cinttypes>

#include "common/debug_log.h"
#include "platform/time_stamp.h"

namespace {

constexpr int64_t kThresholdMs = 2500;

TClockOffset g_offset; // the sampling round's alone

} // namespace

std::optional<int64_t> clock_change_step(TClockOffset *offset, uint64_t real_ms, uint64_t mono_ms)
{
    /* Unsigned differences: no step of the clock is too large for them. */
    const uint64_t now = real_ms - mono_ms;
    const auto gap = static_cast<int64_t>(static_cast<uint64_t>(offset->previous_ms) - now);
    const bool armed = !offset->first;
    offset->first = false;
    offset->previous_ms = static_cast<int64_t>(now);
    if (armed && (gap > kThresholdMs || gap < -kThresholdMs))
        return gap;
    return std::nullopt;
}

int clock_change_check()
{
    const uint64_t real_ms = current_time_stamp();
    const uint64_t mono_ms = current_time_stamp_mono_r();
    if (const auto gap = clock_change_step(&g_offset, real_ms, mono_ms))
        log_File_Debug(kLogTimeChange,
                       "time was changed to %s time: diff_gap=[%" PRIi64 "], threshold=[%" PRIi64
                       "], cur_real_tp=[%" PRIu64 "], cur_mono_tp=[%" PRIu64 "]",
                       *gap < 1 ? "FUTURE" : "PAST", *gap, kThresholdMs, real_ms, mono_ms);
    return 0;
}
