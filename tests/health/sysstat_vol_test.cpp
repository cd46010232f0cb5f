#include "health/sysstat_vol.h"

#include "common/local_time.h"
#include "common/system_volume.h"
#include "fake_platform/fake_platform.h"

namespace {

using VolumeWatcher = fake::TPlatformTest;

TEST_F(VolumeWatcher, DaysOfChecks)
{
    setenv("TZ", "XST-5:30", 1); // 00:25 is at 18:55 of UTC
    constexpr int64_t kStart = 1'700'000'000, kDay = 86400, kRaid = kStart / kDay * kDay + 68100;
    T_VOL_SCHEDULE schedule;
    int checks = 0, forced = 0;
    std::vector<int64_t> raids;
    for (int64_t now = kStart; now < kStart + 3 * kDay; ++now) {
        const T_VOL_DUE due = vol_schedule_tick(&schedule, now, local_time_of(now));
        checks += due.check ? 1 : 0;
        forced += due.force ? 1 : 0;
        EXPECT_TRUE(now == kStart || now % (due.force ? 3600 : 60) == 0 || !due.check) << now;
        if (due.raid)
            raids.push_back(now);
    }
    EXPECT_EQ(checks, 1 + 3 * 1440);
    EXPECT_EQ(forced, 1 + 3 * 24);
    EXPECT_EQ(raids, (std::vector<int64_t>{kRaid + kDay, kRaid + 2 * kDay, kRaid + 3 * kDay}));
}

TEST_F(VolumeWatcher, LateChecksAndAClockSetBack)
{
    constexpr int64_t kDay = int64_t{19700} * 86400;
    constexpr int kTenYears = 3652 * 86400;
    T_VOL_SCHEDULE schedule;
    std::string due;
    for (const int64_t now :
         {25 * 60 + 59, 26 * 60 + 50, 3600 + 45, 3600 + 60, 25 * 60, 26 * 60, 30 - kTenYears, 60 - kTenYears}) {
        const T_VOL_DUE tick = vol_schedule_tick(&schedule, kDay + now, local_time_of(kDay + now));
        due += std::string(tick.check ? "c" : "") + (tick.force ? "f" : "") + (tick.raid ? "r" : "") + " ";
    }
    /* On the first day too; seconds and whole minutes may be missed; a clock that
     * was set back, however far, has the checks wait for the next minute. */
    EXPECT_EQ(due, "cfr c cf c  c  c ");
}

TEST_F(VolumeWatcher, TheThreadWarmsUpAndOwesTheDisableThroughAStop)
{
    g_system_volume_id = -1;
    fake::state()->self_conf["OSTRAPRO_SYS_VOL"] = "1";
    fake::state()->usage = {{1, INT64_MAX, int64_t{500} * 1048576, 0, 0, {}}};
    const auto disabled = [] { return fake::state()->ostrapro_disabled; };

    fake::stderr_of([&] {
        vol_thread_start();
        fake::pass_waits(180);
        EXPECT_EQ(fake::programs().size(), 0U);
        fake::pass_waits(1); // 22:16:21; into the delay before the disable
        EXPECT_EQ(fake::programs().size(), 1U);
        EXPECT_EQ(disabled(), 0);
        vol_thread_stop();
        EXPECT_EQ(disabled(), 1);
        vol_thread_start();   // goes on where the old thread was
        fake::pass_waits(38); // 22:16:59
        EXPECT_EQ(fake::programs().size(), 1U);
        fake::pass_waits(1);
        EXPECT_EQ(fake::programs().size(), 2U);
        vol_thread_stop();
    });
    EXPECT_EQ(disabled(), 1);
}

} // namespace
