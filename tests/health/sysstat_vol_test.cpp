#include "health/sysstat_vol.h"

#include "common/debug_log.h"
#include "common/local_time.h"
#include "common/system_volume.h"
#include "fake_platform/fake_platform.h"

namespace {

using VolumeWatcher = fake::TQuietTest;

TEST_F(VolumeWatcher, ChecksMinutesAndHoursOfUtcButTheArrayByLocalTime)
{
    setenv("TZ", "XST-5:30", 1);
    constexpr int64_t kDay = int64_t{19700} * 86400 + 66600; // 18:30 of UTC, midnight here
    constexpr int kRaid = 25 * 60, kTenYears = 3652 * 86400;
    const std::pair<int, const char *> moments[] = {{kRaid - 1, "check by force"}, // the first
                                                    {kRaid + 59, "check raid"},    // on the first day too
                                                    {kRaid + 59, ""},
                                                    {kRaid + 110, "check"},   // seconds and whole minutes may be missed
                                                    {1800, "check by force"}, // 19:00 of UTC
                                                    {1795, ""},               // back across the hour
                                                    {1861, "check"},
                                                    {3600 + 45, "check"},
                                                    {3600 + 60, "check"},
                                                    {86400 + kRaid, "check by force raid"},
                                                    {86400 + kRaid + 59, ""},
                                                    {2400, ""}, // back by a day
                                                    {2460, "check"},
                                                    {2440, ""}, // back by seconds
                                                    {2465, ""},
                                                    {5400, "check by force"},
                                                    {30 - kTenYears, ""}, // back by years
                                                    {60 - kTenYears, "check"}};
    TVolSchedule schedule;
    for (const auto &[now, what] : moments) {
        const TVolDue due = vol_schedule_tick(&schedule, kDay + now, local_time_of(kDay + now));
        const std::string text =
            std::string(due.check ? "check" : "") + (due.force ? " by force" : "") + (due.raid ? " raid" : "");
        EXPECT_EQ(text, what) << now;
    }
}

TEST_F(VolumeWatcher, TheThreadWarmsUpAndOwesTheDisableThroughAStop)
{
    g_system_volume_id = -1;
    fake::state()->self_conf["OSTRAPRO_SYS_VOL"] = "1";
    TVolSchedule schedule;
    for (const auto &[now_s, elapsed] : {std::pair(100, false), {280, false}, {281, true}, {282, true}})
        EXPECT_EQ(vol_warmup_elapsed(&schedule, now_s), elapsed) << now_s;

    const std::string worker = "VOL-worker";
    vol_thread_start(); // the grace begins, or ended long ago: it is once per process
    fake::pass_waits(0, worker);
    fake::state()->usage = {{1, INT64_MAX, int64_t{500} * 1048576, 0, 0, {}}};
    fake::advance_ms(180'000);
    fake::pass_waits(1, worker); // 22:16:21; into the delay before the disable
    EXPECT_EQ(fake::state()->programs.size(), 1U);
    EXPECT_EQ(fake::state()->ostrapro_disabled, 0);
    vol_thread_stop();
    EXPECT_EQ(fake::state()->ostrapro_disabled, 1);
    vol_thread_start();           // goes on where the old thread was
    fake::pass_waits(38, worker); // 22:16:59
    EXPECT_EQ(fake::state()->programs.size(), 1U);
    fake::pass_waits(1, worker);
    EXPECT_EQ(fake::state()->programs.size(), 2U);
    EXPECT_EQ(fake::woken_by_ticks(worker, {59'999, 1, 0}), "010");
    EXPECT_EQ(log_text(kLogVolume), "");
    fake::g_wall_ms = 1'700'007'900'000; // 00:25
    EXPECT_EQ(fake::woken_by_ticks(worker), "1");
    vol_thread_stop();
    EXPECT_EQ(fake::state()->ostrapro_disabled, 1);
    EXPECT_EQ(log_text(kLogVolume), "do_raid_check(777), PAL_storage_get_volume_info failed,  ret=[00000001]");
}

} // namespace
