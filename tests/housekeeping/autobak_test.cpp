#include "housekeeping/sysstat_autobak.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

#include "fake_platform/fake_platform.h"
#include "platform/logging.h"

namespace {

TEST(Autobak, StartsOncePerTimeTheClockComesToTheMinute)
{
    struct {
        int hour, minute;
        bool due;
    } const rounds[] = {
        {0, 44, false},  {0, 45, true},   {0, 45, false}, {0, 45, false},
        {0, 46, false},  {0, 45, true}, // the clock was set back across it
        {12, 45, false}, {23, 59, false}, {0, 46, false}, {0, 45, true},
    };
    int last_minute = -1;
    for (const auto &round : rounds) {
        struct tm now = {};
        now.tm_hour = round.hour;
        now.tm_min = round.minute;
        EXPECT_EQ(autobak_due(&last_minute, now), round.due) << round.hour << ":" << round.minute;
    }
    last_minute = -1;
    struct tm at_start = {};
    at_start.tm_min = 45;
    EXPECT_TRUE(autobak_due(&last_minute, at_start));
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

class AutobakRun : public fake::TPlatformTest {};

TEST_F(AutobakRun, RunsBothBackupsAndReportsAFailedSurveillanceBackup)
{
    fake::on_exec([](const fake::argv_t &argv) { return argv.size() == 2 ? 1 : 3; });
    fake::set_wall_ms(1700009100000); // 00:45:00 UTC
    sysstat_autobak_check();
    sysstat_autobak_check();
    /* Nobody waits for the backups, so the test must. */
    for (int i = 0; i < 5000 && (fake::programs().size() < 2 || fake::state()->surveillance_log.empty()); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    auto programs = fake::programs();
    std::sort(programs.begin(), programs.end());
    EXPECT_EQ(programs, (std::vector<fake::argv_t>{{"/usr/local/cmsbin/cfg_bak_tool", "backup"},
                                                   {"/usr/local/cmsbin/cfg_bak_tool", "backup", "-c"}}));
    const auto log = fake::state()->surveillance_log;
    ASSERT_EQ(log.size(), 1U);
    EXPECT_EQ(log[0].code, 0x4004000A);
    EXPECT_EQ(log[0].source_address, "127.0.0.1");
    EXPECT_EQ(log[0].user, "System");
    EXPECT_EQ(log[0].args[0], "OstraSurveillanceSys/AutoDailyConfigBack");
    EXPECT_EQ(log[0].camera, -1);
}

} // namespace
