#include "platform/time_stamp.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

#include "platform/stock/process/wait_deadline.h"

namespace {

TEST(TimeStamp, LocalTimeFollowsAChangeOfTheZone)
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

TEST(TimeStamp, ClocksAreInMillisecondsAndAMonotonicMomentHasItsDate)
{
    const auto shown = [](clockid_t clock) {
        struct timespec now = {};
        clock_gettime(clock, &now);
        return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
    };
    const uint64_t times_ms[] = {shown(CLOCK_REALTIME), current_time_stamp(), shown(CLOCK_REALTIME)},
                   monos_ms[] = {shown(CLOCK_MONOTONIC), current_time_stamp_mono_r(), current_time_stamp_mono(),
                                 shown(CLOCK_MONOTONIC)};
    EXPECT_TRUE(std::is_sorted(std::begin(times_ms), std::end(times_ms)));
    EXPECT_TRUE(std::is_sorted(std::begin(monos_ms), std::end(monos_ms)));
    const uint64_t wall_ms = times_ms[1], mono_ms = monos_ms[1];
    for (const int64_t hours : {-30, 0, 30}) { // the hour may change in between
        struct tm date = {};
        EXPECT_EQ(get_date_and_time(&date, mono_ms + static_cast<uint64_t>(hours * 3'600'000)), 0);
        EXPECT_LE(std::abs(timegm(&date) - static_cast<int64_t>(wall_ms / 1000) - 3600 * hours), 2);
    }
}

} // namespace
