#include "common/local_time.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(LocalMinute, TheZoneCountsFromTheNextMinuteOnAndAMovedClockAtOnce)
{
    TLocalMinute minute;
    const auto text = [&minute](time_t seconds) {
        const struct tm date = minute.at(seconds);
        char buffer[32];
        return std::string(buffer, strftime(buffer, sizeof(buffer), "%F %T", &date));
    };
    constexpr time_t kNow = 1'700'000'000;
    setenv("TZ", "UTC", 1);
    EXPECT_EQ(text(kNow), "2023-11-14 22:13:20");
    EXPECT_EQ(text(kNow - 20), "2023-11-14 22:13:00");
    setenv("TZ", "OLD-00:00:17", 1); // no whole minutes
    EXPECT_EQ(text(kNow + 39), "2023-11-14 22:13:59");
    EXPECT_EQ(text(kNow + 40), "2023-11-14 22:14:17");
    EXPECT_EQ(text(kNow + 82), "2023-11-14 22:14:59");
    EXPECT_EQ(text(kNow + 83), "2023-11-14 22:15:00");
    EXPECT_EQ(text(kNow - 86400), "2023-11-13 22:13:37");
    setenv("TZ", "UTC", 1);
}

} // namespace
