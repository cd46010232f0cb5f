#include "health/sysstat_vol.h"

#include "common/local_time.h"
#include "common/system_volume.h"
#include "fake_platform/fake_platform.h"

namespace {

using VolumeWatcher = fake::TPlatformTest;

TEST_F(VolumeWatcher, ChecksMinutesAndHoursOfUtcButTheArrayByLocalTime)
{
    setenv("TZ", "XST-5:30", 1);
    constexpr int64_t kDay = int64_t{19700} * 86400 + 66600; // 18:30 of UTC, midnight here
    constexpr int kRaid = 25 * 60, kTenYears = 3652 * 86400;
    T_VOL_SCHEDULE schedule;
    std::string due;
    for (const int64_t now :
         {kRaid - 1, kRaid + 59, kRaid + 59, kRaid + 110, 30 * 60, 3600 + 45, 3600 + 60, 86400 + kRaid, 40 * 60,
          41 * 60, 41 * 60 - 20, 41 * 60 + 5, 30 - kTenYears, 60 - kTenYears}) {
        const T_VOL_DUE tick = vol_schedule_tick(&schedule, kDay + now, local_time_of(kDay + now));
        due += std::string(tick.check ? "c" : "") + (tick.force ? "f" : "") + (tick.raid ? "r" : "") + " ";
    }
    /* On the first day too; seconds and whole minutes may be missed; a clock that
     * was set back by seconds repeats nothing, one by days or years is followed. */
    EXPECT_EQ(due, "cf cr  c cf c c cfr  c    c ");
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
