#include "core/VeloMond.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/round_clock.h"
#include "fake_platform/fake_platform.h"

namespace {

using testing::AllOf, testing::HasSubstr;

TEST(RoundClock, RunsTenSecondsAfterTheStartAndAfterEachRoundsBeginning)
{
    TRoundClock clock(100);
    std::vector<time_t> rounds;
    for (const time_t now : {100, 101, 109, 110, 110, 112, 119, 120, 135, 136, 144, 145})
        if (clock.due(now))
            rounds.push_back(now);
    EXPECT_EQ(rounds, (std::vector<time_t>{110, 120, 135, 145}));
}

class Lifecycle : public fake::TPlatformTest {};

TEST_F(Lifecycle, GoesOnWithoutAService)
{
    const auto told_by_a_run = [] {
        return fake::stderr_of([] {
            EXPECT_EQ(VeloMond_start(), 0);
            EXPECT_EQ(VeloMond_restart(), 0); // of nothing
            EXPECT_EQ(VeloMond_stop(), 0);
        });
    };
    fake::state()->create_result = 5;
    fake::state()->stop_result = 6;
    EXPECT_THAT(told_by_a_run(),
                AllOf(HasSubstr("ssci_server_create failed, ret=[5]\n exit.\n"),
                      HasSubstr("VeloMond:VeloMond_restart(386)\n"),
                      HasSubstr("ssci_server_stop failed, ret=[6]\n exit.\n"), HasSubstr("sysstat_cpu_uninit(802)")));
    fake::state()->create_result = 0;
    fake::state()->start_result = 7;
    EXPECT_THAT(told_by_a_run(), HasSubstr("ssci_server_start failed, ret=[7]\n exit.\n"));
}

} // namespace
