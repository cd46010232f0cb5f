#include "housekeeping/clock_change.h"

#include <gtest/gtest.h>

namespace {

TEST(ClockChange, ReportsEachStepAboveTheThresholdOnce)
{
    std::optional<uint64_t> offset;
    uint64_t real = 1700000000000;
    uint64_t mono = 5000;
    const auto round = [&](int64_t step_ms) {
        real += 10000 + static_cast<uint64_t>(step_ms);
        mono += 10000;
        return clock_change_step(&offset, real, mono);
    };
    constexpr int64_t kTenYears = int64_t{3652} * 86400000;
    EXPECT_FALSE(round(12345678)); // before the first look: only learnt
    for (const int64_t quiet : {0, 2000, -2000, 2500, -2500, 0})
        EXPECT_FALSE(round(quiet)) << quiet;
    for (const int64_t step : {int64_t{2501}, int64_t{-2501}, int64_t{3600000}, kTenYears, -kTenYears}) {
        EXPECT_EQ(round(step).value_or(0), -step);
        EXPECT_FALSE(round(0));
    }
}

} // namespace
