#include "housekeeping/clock_change.h"

#include <gtest/gtest.h>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

namespace {

TEST(ClockChange, ReportsEachStepAboveTheThresholdOnce)
{
    T_CLOCK_OFFSET offset;
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

class ClockChangeLog : public fake::TPlatformTest {};

TEST_F(ClockChangeLog, TellsDirectionAndBothClocks)
{
    fake::set_wall_ms(1700000000000);
    fake::set_mono_ms(50000);
    clock_change_check();
    fake::set_wall_ms(1700003610000);
    fake::set_mono_ms(60000);
    clock_change_check();
    fake::set_wall_ms(1700003617000);
    fake::set_mono_ms(70000);
    clock_change_check();
    EXPECT_EQ(log_text(kLogTimeChange),
              "time was changed to FUTURE time: diff_gap=[-3600000], threshold=[2500], cur_real_tp=[1700003610000], "
              "cur_mono_tp=[60000]"
              "time was changed to PAST time: diff_gap=[3000], threshold=[2500], cur_real_tp=[1700003617000], "
              "cur_mono_tp=[70000]");
}

} // namespace
