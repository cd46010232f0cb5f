#include "housekeeping/sysstat_autobak.h"

#include <mutex>
#include <set>
#include <thread>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

namespace {

using AutobakRound = fake::TPlatformTest;

TEST_F(AutobakRound, BothBackupsRunAndOnlyTheFirstsFailureIsRecorded)
{
    setenv("TZ", "XST-5:30", 1);
    fake::g_wall_ms = 1'700'073'000'000;       // 18:30 of UTC, midnight here
    for (const size_t result : {0U, 1U, 2U}) { // one entry for each day on which the first fails
        fake::state()->surveillance_log_result = result == 2 ? -5 : 0;
        std::mutex lock; // the two run beside each other
        std::set<std::string> ran;
        fake::state()->exec = [&](const fake::argv_t &argv) {
            char name[16] = "";
            pthread_getname_np(pthread_self(), name, sizeof(name));
            std::string all = std::string(name) + " for " + std::to_string(fake::time_limit_s()) + " s:";
            for (const std::string &one : argv)
                all += " " + one;
            const std::lock_guard guard(lock);
            ran.insert(all);
            return static_cast<int>(result);
        };
        for (int minute = 0; minute < 24 * 60; ++minute) {
            EXPECT_EQ(sysstat_autobak_check(), 0);
            fake::advance_ms(60'000);
        }
        const auto ended = [&] {
            const std::lock_guard guard(lock);
            return ran.size() >= 2 && fake::state()->surveillance_log.size() == result &&
                   (result != 2 || !log_text(kLogMain).empty());
        };
        for (int i = 0; i < 5000 && !ended(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(ran, (std::set<std::string>{"AUTOBAK-worker for 3600 s: /usr/local/cmsbin/cfg_bak_tool backup",
                                              "AUTOBAK_CM-work for 3600 s: /usr/local/cmsbin/cfg_bak_tool backup -c"}));
        ASSERT_EQ(fake::state()->surveillance_log.size(), result);
    }
    EXPECT_EQ(fake::state()->programs.size(), 6U);
    EXPECT_EQ(log_text(kLogMain), "sysstat_autobak:do_autobak (84) logtool_send_surveillance_log failed (-5), "
                                  "str_display_path:OstraSurveillanceSys/AutoDailyConfigBack \n");
    const log_info entry = fake::state()->surveillance_log[0];
    EXPECT_EQ(
        std::tie(entry.code, entry.source_address, entry.user, entry.computer, entry.application, entry.camera,
                 entry.volume, entry.args[0], entry.args[1]),
        std::tuple(0x4004000A, "127.0.0.1", "System", "", "", -1, -1, "OstraSurveillanceSys/AutoDailyConfigBack", ""));
}

TEST(Autobak, StartsOncePerTimeTheClockComesToTheMinute)
{
    std::string due;
    int last_minute = -1;
    for (const int hhmm : {45, 45, 46, 45, 1245, 2359, 46, 45}) { // the clock is set back across it
        struct tm now = {};
        now.tm_hour = hhmm / 100;
        now.tm_min = hhmm % 100;
        due += autobak_due(&last_minute, now) ? "1" : "0";
    }
    EXPECT_EQ(due, "10010001");
}

TEST(Autobak, UsersKnowTheFolderFromItsShareOn)
{
    for (const auto &[folder, shown] : std::initializer_list<std::pair<std::string, std::string>>{
             {"/share/OstraSurveillanceSys/AutoDailyConfigBack", "OstraSurveillanceSys/AutoDailyConfigBack"},
             {"/share/a/b///", "a/b"},
             {"/share", ""},
             {"", ""},
             {"/share/", ""},
             {"/share/" + std::string(127, 'x') + "/", std::string(127, 'x')},
             {"/share/" + std::string(128, 'x'), ""}})
        EXPECT_EQ(autobak_display_path(folder), shown) << folder;
}

} // namespace
