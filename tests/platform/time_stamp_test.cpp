#include "platform/time_stamp.h"

#include <cstdlib>
#include <gtest/gtest.h>

#include "platform/stock/process/wait_deadline.h"

namespace {

TEST(TimeStamp, LocalTimeFollowsAChangeOfTheZoneAndAMonotonicMomentHasItsDate)
{
    const auto text = [](time_t seconds) {
        const struct tm date = get_local_time(seconds);
        char buffer[32];
        return std::string(buffer, strftime(buffer, sizeof(buffer), "%a %F %T", &date));
    };
    setenv("TZ", "TST-05:45", 1);
    EXPECT_EQ(text(1'700'000'000), "Wed 2023-11-15 03:58:20");
    setenv("TZ", "UTC", 1);
    EXPECT_EQ(text(1'700'000'000), "Tue 2023-11-14 22:13:20");
    const auto now_ms = static_cast<int64_t>(current_time_stamp_mono());
    const auto steady = std::chrono::steady_clock::now().time_since_epoch();
    EXPECT_LE(std::abs(now_ms / 1000 - std::chrono::duration_cast<std::chrono::seconds>(steady).count()), 60);
    for (const int64_t hours : {-30, 0, 30}) {
        struct tm date = {};
        EXPECT_EQ(get_date_and_time(&date, static_cast<uint64_t>(now_ms + hours * 3'600'000)), 0);
        EXPECT_LE(std::abs(timegm(&date) - time(nullptr) - 3600 * hours), 60);
    }
}

TEST(TimeStamp, WaitsOfWholeSecondsEndTogetherAndNeverLate)
{
    using TMoment = std::chrono::steady_clock::time_point;
    const TMoment second(std::chrono::seconds(1000));
    for (const long ns : {0L, 1L, 999'999'999L}) {
        const TMoment now = second + std::chrono::nanoseconds(ns);
        for (const int seconds : {1, 60})
            EXPECT_EQ(wait_deadline(now, static_cast<uint64_t>(seconds) * 1000) - second,
                      std::chrono::seconds(seconds));
        for (const int ms : {0, 999, 1001}) // no wait is none, and others are not shortened
            EXPECT_EQ(wait_deadline(now, static_cast<uint64_t>(ms)) - now, std::chrono::milliseconds(ms));
    }
}

} // namespace
