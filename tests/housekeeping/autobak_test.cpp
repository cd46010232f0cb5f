#include "housekeeping/sysstat_autobak.h"

#include <gtest/gtest.h>

namespace {

TEST(Autobak, StartsOncePerTimeTheClockComesToTheMinute)
{
    struct {
        int hour, minute;
        bool due;
    } const rounds[] = {
        {0, 45, true},   {0, 45, false}, // just started
        {0, 46, false},  {0, 45, true},  // the clock was set back across it
        {12, 45, false}, {23, 59, false}, {0, 46, false}, {0, 45, true},
    };
    int last_minute = -1;
    for (const auto &round : rounds) {
        struct tm now = {};
        now.tm_hour = round.hour;
        now.tm_min = round.minute;
        EXPECT_EQ(autobak_due(&last_minute, now), round.due) << round.hour << ":" << round.minute;
    }
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
