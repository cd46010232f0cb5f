#include "health/sysstat_smart.h"

#include <filesystem>
#include <new>
#include <tuple>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"
#include "health/change_marker.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kSundayMs = 1'699'747'200'000; // 2023-11-12 00:00:00 UTC
constexpr uint64_t kDayMs = 86'400'000;
const std::string kUnheard = "sysstat_smart.cpp:do_update (331) ssci_POST_request failed (3)";

class Smart : public fake::TQuietTest {
protected:
    Smart()
    {
        fake::g_wall_ms = kSundayMs;
        fake::state()->enclosure.enclosure_count = 1;
        fake::state()->disk_list = [](int, t_storage_disk_list &out) {
            out.disks = {{"disk_01", "old", "yes", 0}, {"disk_02", "bad", "yes", 2}};
            return 0U;
        };
        fake::state()->smart = [](int id, t_storage_smart_info &out) {
            out.power_on_hours = id == 1 ? 20001 : 20000;
            return 0U;
        };
        fake::state()->popen = [](const fake::argv_t &) { return "disk_01 disk_02"; };
    }
    /* Lets the watcher run for a while, a tick every half minute, and tells which
     * event went out in which minute. */
    std::vector<std::string> walk(uint64_t duration_ms)
    {
        std::vector<std::string> events;
        fake::state()->exec = [&events](const fake::argv_t &argv) {
            const uint64_t minute = (current_time_stamp() - kSundayMs) / 60'000;
            events.push_back(std::to_string(minute) + " " + argv.at(2));
            return 0;
        };
        for (uint64_t passed_ms = 0; passed_ms < duration_ms; passed_ms += 30'000) {
            smart_tick(&m_state);
            fake::advance_ms(30'000);
        }
        return events;
    }

    TSmartState m_state;
};

TEST_F(Smart, AWeeklyScheduleSendsHoursOnItsDayAndDiskStatusDaily)
{
    m_state.settings = {20000, "weekly", 3, 4};
    m_state.scheduled_hour = true; // left over
    EXPECT_EQ(walk(7 * kDayMs),    // each day at 04:00; day 3 is Wednesday
              (std::vector<std::string>{"240 0x28020001", "1680 0x28020001", "3120 0x28020001", "4560 0x28020001",
                                        "4560 0x28030001", "6000 0x28020001", "7440 0x28020001", "8880 0x28020001"}));
    for (const char *type : {"daily", "yearly", ""}) { // all others are daily
        m_state.settings.sch_type = type;
        EXPECT_EQ(walk(kDayMs).size(), 2U) << type;
    }
    for (const size_t events : {0U, 2U}) { // the same day again
        fake::g_wall_ms -= kDayMs;
        EXPECT_EQ(walk(kDayMs).size(), events);
        m_state.last_day = kNoDay;
    }
}

TEST_F(Smart, ACheckOfSlowDisksLosesNoEvents)
{
    fake::state()->smart = [](int, t_storage_smart_info &out) {
        fake::advance_ms(50'000); // the second disk ends beyond the minute
        out.power_on_hours = 1;
        return 0U;
    };
    EXPECT_EQ(walk(1), std::vector<std::string>{"1 0x28020001"});
}

TEST_F(Smart, ChecksOnceAMinuteAndReportsChangesOnce)
{
    fake::g_wall_ms = kSundayMs + 1'800'000;
    for (const uint64_t after_ms : {0ULL, 59'999ULL, 1ULL, 60'000ULL}) {
        fake::advance_ms(after_ms);
        smart_tick(&m_state);
    }
    const auto told = fake::state()->requests;
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[0].body, R"({"utc_time":"1699749000","disk_update":"error"})");
    EXPECT_EQ(told[1].body, R"({"utc_time":"1699749060","disk_update":"hour_warning"})"); // unheard, not repeated
    fake::state()->enclosure_result = 1; // no disks: the first report goes out all the same
    fake::state()->request = [](const fake::TRequest &, std::string *) { return 0LL; };
    fake::g_mono_ms = 59'999; // the machine has just started
    TSmartState blind;
    smart_tick(&blind);
    EXPECT_EQ(fake::state()->requests.back().body, R"({"utc_time":"1699749120","disk_update":"normal"})");
    EXPECT_EQ(log_text(kLogSmart),
              kUnheard + kUnheard + "do_disk_list_check(203), PAL_storage_get_enclosure_list failed,  ret=[00000001]");
}

TEST_F(Smart, OnlyDisksThatRecordAreAnnouncedForTheirHours)
{
    m_state.disks = {{"a", {kSmartNormal, 101, 0, "good", "a"}},
                     {"b", {kSmartWarning, 100, 0, "bad", "b"}},
                     {"d", {kSmartHourWarning, 101, 0, "old", "d"}}};
    m_state.settings.threshold_hours = 100;
    m_state.recording_disks = "b,c,a\n";
    smart_send_disk_status(m_state);
    smart_send_power_on_hours(m_state);
    const std::string tool = "/usr/bin/ostra_log_tool";
    EXPECT_EQ(fake::state()->programs,
              (std::vector<fake::argv_t>{{tool, "2", "0x28010001", "-1", "", "", "bad"},
                                         {tool, "2", "0x28030001", "-1", "", "", "good", "100", "101"}}));
}

TEST_F(Smart, AMarkerIsSeenOnceAndLookedForWhenItsFolderChanges)
{
    const std::string path = root() + "/var/run/.changed";
    TChangeMarker marker(path);
    const auto look = [&marker] { // whether it is due, whether it is there, whether it is due again
        const bool due = marker.is_due(), exists = marker.take();
        return std::tuple(due, exists, marker.is_due());
    };
    EXPECT_EQ(look(), std::tuple(true, false, true)); // there is no folder to watch
    write_file("/var/run/.changed", "");
    EXPECT_EQ(look(), std::tuple(true, true, false));
    EXPECT_EQ(look(), std::tuple(false, false, false));
    write_file("/var/run/.other", "");
    EXPECT_EQ(look(), std::tuple(true, false, false));
    std::filesystem::rename(root() + "/var/run", root() + "/var/gone"); // where another file system is mounted, say
    EXPECT_TRUE(marker.is_due());
    write_file("/var/run/.changed/x", ""); // a folder, which cannot be removed with what is in it
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(look(), std::tuple(true, true, true));
    std::filesystem::remove_all(path);
    EXPECT_EQ(look(), std::tuple(true, false, false));
    std::filesystem::rename(root() + "/var/gone/.other", path);
    EXPECT_TRUE(TChangeMarker(path).is_due()); // it was there before
    EXPECT_TRUE(marker.is_due());
    EXPECT_TRUE(marker.take());
}

TEST_F(Smart, TheThreadWaitsForItsSettingsAndReloadsThemOnTheMarker)
{
    const std::string worker = "SMART-worker";
    fake::state()->nvr_error = 2;
    write_file("/var/other", "");
    fake::state()->request = [](const fake::TRequest &, std::string *) -> long long { throw std::bad_alloc(); };
    smart_thread_start();
    fake::pass_waits(2, worker);
    EXPECT_EQ(current_time_stamp(), kSundayMs + 2000);
    fake::state()->nvr_error = 0;
    fake::pass_waits(1, worker); // into the minute after the exception
    fake::state()->request = nullptr;
    fake::pass_waits(1, worker); // 00:01:03
    EXPECT_EQ(fake::state()->requests.size(), 2U);
    EXPECT_EQ(fake::woken_by_ticks(worker, {0, 56'999, 1, 0, 1'000, 1'499, 1}), "1010001"); // new minute; check
    write_file("/var/.hdd_health_config_change", "");
    fake::state()->nvr["hdd_health|power_on_hour_threshold"] = "77";
    EXPECT_EQ(fake::woken_by_ticks(worker, {0, 60'000}), "11"); // loads once
    EXPECT_FALSE(exists("/var/.hdd_health_config_change"));
    smart_thread_stop();
    const std::string load = "get_hdd_health_setting() : hour threshold=", rest = ", type=daily, week day=0, hour=0";
    EXPECT_EQ(log_text(kLogSmart), load + "20000" + rest + kUnheard + load + "77" + rest);
}

} // namespace
