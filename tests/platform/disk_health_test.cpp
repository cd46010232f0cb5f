#include "platform/stock/storage/disk_health.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <latch>
#include <semaphore>
#include <thread>

#include "platform/interrupt.h"
#include "platform/raw_socket.h"
#include "platform/stock/process/call_wait.h"

namespace {

using enum TSmartOutcome;

TSmartMoment moment(uint64_t mono_s, time_t wall_s)
{
    return {mono_s * 1000, wall_s, get_local_time(wall_s)};
}

constexpr time_t kHourS = 3600;
constexpr time_t kNoon = 1'780'000'000 / kHourS * kHourS; // the beginning of an hour, in whole zones

TEST(SmartDue, OncePerHourOfTheCalendarAndNeverWithinAMinute)
{
    for (const auto &[name, mono_s, wall_s, due_in_s] :
         {std::tuple("the next check", 1060U, kNoon + 70, -1), // not due
          {"the last check of the hour", 1000 + 3589, kNoon + 3599, -1},
          {"the next hour, a little less than one hour on", 1000 + 3595, kNoon + 3605, 0},
          {"the next hour, seconds after", 1000 + 59, kNoon + 3605, 1},
          {"the next hour, a minute after", 1000 + 60, kNoon + 3605, 0},
          {"the same hour of another day", 1000 + 60, kNoon + 24 * kHourS + 10, 0},
          {"the clock was set back", 1000 + 60, kNoon + 5, 0},
          {"the clock was set back by the time that passed", 1000 + 3600, kNoon + 10, 0}})
        EXPECT_EQ(smart_due_in(moment(1000, kNoon + 10), moment(mono_s, wall_s)),
                  due_in_s < 0 ? std::nullopt : std::optional<uint64_t>(static_cast<uint64_t>(due_in_s) * 1000))
            << name;
}

class DiskHealth : public testing::Test {
protected:
    /* Sets the outcome of the next query and returns the result of read(). */
    int ask(TSmartOutcome outcome, TSmartReading reading = {}, bool suspended = false)
    {
        m_outcome = outcome;
        m_reading = reading;
        m_got = {};
        return m_health.read({"sda", "", "", "", "serial", suspended}, &m_got);
    }
    void an_hour_later() { m_s += 3600; }

    uint64_t m_s = 1000;
    uint64_t m_s_per_look = 0; // time that passes between two readings of the clock
    TSmartOutcome m_outcome = kRead;
    TSmartReading m_reading, m_got;
    int m_error = 0;
    std::vector<bool> m_woken; // for each query
    TDiskHealth m_health{[this](const std::string & /*disk*/, bool may_wake, TSmartReading *out, int *error) {
                             m_woken.push_back(may_wake);
                             *out = m_reading;
                             *error = m_error;
                             return m_outcome;
                         },
                         [this] {
                             m_s += m_s_per_look;
                             call_waits_wake(); // wakes all waits
                             return moment(m_s, kNoon + static_cast<time_t>(m_s));
                         }};
};

TEST_F(DiskHealth, IsQueriedOncePerHourAndKeptPerDisk)
{
    EXPECT_FALSE(m_health.known("serial").passed.has_value());
    EXPECT_EQ(ask(kRead, {true, 5, false}), 0);
    EXPECT_EQ(ask(kRead, {false, 6, false}), 0); // not queried
    EXPECT_EQ(m_got.power_on_hours, 5);
    an_hour_later();
    EXPECT_EQ(ask(kRead, {std::nullopt, 6, true}), 0);
    EXPECT_EQ(m_got.power_on_hours, 6);
    EXPECT_EQ(m_got.passed, true); // kept, as the disk did not report it
    EXPECT_TRUE(m_got.worn);
    EXPECT_EQ(m_woken.size(), 2U);
    EXPECT_EQ(m_health.known("serial").power_on_hours, 6);
    EXPECT_FALSE(m_health.known("another in its place").power_on_hours.has_value());

    for (int i = 1; i <= 1025; ++i) { // with the one above there are 1025, which are too many
        EXPECT_EQ(m_health.read({"sda", "", "", "", std::to_string(i == 1024 ? 1 : i)}, &m_got), 0);
        EXPECT_EQ(m_health.known("2").power_on_hours.has_value(), i >= 2 && i <= 1024) << i;
    }
}

TEST_F(DiskHealth, WaitsForTheMinuteToPassWhenAnHourBeginsWithinIt)
{
    m_s = 3590;
    EXPECT_EQ(ask(kRead, {true, 5, false}), 0);
    m_s = 3645;
    m_s_per_look = 2;
    EXPECT_EQ(ask(kRead, {false, 5, false}), 0);
    EXPECT_EQ(m_got.passed, false);
    EXPECT_EQ(m_s, 3651U);
}

TEST_F(DiskHealth, OfASleepingDiskIsItsLastReading)
{
    EXPECT_EQ(ask(kAsleep, {}, true), -EAGAIN); // woken nevertheless, in vain
    an_hour_later();
    EXPECT_EQ(ask(kAsleep), -EAGAIN);
    an_hour_later();
    EXPECT_EQ(ask(kRead, {false, 5, false}), 0);
    an_hour_later();
    EXPECT_EQ(ask(kAsleep), 0);
    EXPECT_EQ(m_got.passed, false);
    an_hour_later();
    EXPECT_EQ(ask(kRead, {true, 6, false}, true), 0); // opening it would wake it
    EXPECT_EQ(m_got.power_on_hours, 5);
    EXPECT_EQ(m_woken, (std::vector<bool>{true, false, false, false}));
}

TEST_F(DiskHealth, FailsForTheHourWhenItCannotBeReadAndNeverWithoutSmart)
{
    testing::internal::CaptureStderr();
    m_error = -ENOENT;
    EXPECT_EQ(ask(kNoAnswer), -ENOENT);
    m_error = -EINTR;
    an_hour_later();
    EXPECT_EQ(ask(kNoAnswer), -EINTR); // the caller had to stop, the disk was not queried
    m_error = 0;
    EXPECT_EQ(ask(kNoSmart), 0);
    EXPECT_FALSE(m_got.passed.has_value());
    EXPECT_EQ(m_woken, (std::vector<bool>{true, true, true}));
    for (const TSmartOutcome outcome : {kNoSmart, kAsleep, kRead}) {
        an_hour_later();
        EXPECT_EQ(ask(outcome, {true, 5, false}), 0);
    }
    for (const TSmartOutcome outcome : {kUnreadable, kNoSmart}) {
        an_hour_later();
        EXPECT_EQ(ask(outcome), -EIO); // it is known to have SMART
        EXPECT_EQ(ask(kRead), -EIO);
    }
    EXPECT_EQ(m_health.known("serial").power_on_hours, 5);
    const std::string unreadable = "SMART of /dev/sda cannot be read: ", broken = unreadable + "Input/output error\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              unreadable + "No such file or directory\n/dev/sda has no SMART\n" + broken + broken);
}

TEST(DiskHealthThreads, OneQueriesTheOthersWaitForItAndKnownReadingsNeedNoWait)
{
    const TAtMost limit(5000); // far less than a wait that is not woken
    std::counting_semaphore<> asked{0}, looked{0};
    std::latch held{1};
    TDiskHealth health(
        [&](const std::string & /*disk*/, bool /*may_wake*/, TSmartReading *out, int * /*error*/) {
            asked.release();
            held.wait();
            out->power_on_hours = 5;
            return kRead;
        },
        [&] {
            looked.release();
            return moment(1000, kNoon);
        });
    const auto ask = [&health](int expected) {
        TSmartReading got;
        EXPECT_EQ(health.read({"sda", "", "", "", "serial"}, &got), expected);
        EXPECT_EQ(got.power_on_hours.has_value(), expected == 0);
    };
    std::thread first(ask, 0);
    asked.acquire();
    looked.acquire();
    std::thread second(ask, 0);
    looked.acquire(); // it waits for the first one
    EXPECT_FALSE(health.known("serial").power_on_hours.has_value());
    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop);
    ask(-EINTR);
    platform_interrupt_on(nullptr);
    held.count_down();
    first.join();
    second.join();
    EXPECT_FALSE(asked.try_acquire()); // once for all
}

} // namespace
