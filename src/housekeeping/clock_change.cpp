#include "housekeeping/clock_change.h"

#include <cinttypes>
#include <utility>

#include "common/debug_log.h"
#include "platform/time_stamp.h"

namespace {

constexpr int64_t kThresholdMs = 2500;

std::optional<uint64_t> g_offset_ms; // the sampling round's alone

} // namespace

std::optional<int64_t> clock_change_step(std::optional<uint64_t> *offset_ms, uint64_t real_ms, uint64_t mono_ms)
{
    /* Unsigned differences: no step of the clock is too large for them. */
    const uint64_t now_ms = real_ms - mono_ms;
    const auto gap_ms = static_cast<int64_t>(std::exchange(*offset_ms, now_ms).value_or(now_ms) - now_ms);
    if (gap_ms > kThresholdMs || gap_ms < -kThresholdMs)
        return gap_ms;
    return std::nullopt;
}

int clock_change_check()
{
    const uint64_t real_ms = current_time_stamp();
    const uint64_t mono_ms = current_time_stamp_mono_r();
    if (const auto gap = clock_change_step(&g_offset_ms, real_ms, mono_ms))
        log_File_Debug(kLogTimeChange,
                       "time was changed to %s time: diff_gap=[%" PRIi64 "], threshold=[%" PRIi64
                       "], cur_real_tp=[%" PRIu64 "], cur_mono_tp=[%" PRIu64 "]",
                       *gap < 1 ? "FUTURE" : "PAST", *gap, kThresholdMs, real_ms, mono_ms);
    return 0;
}
