#include "health/smart_check.h"

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

namespace {

constexpr uint64_t kMinuteMs = 60000;
constexpr uint64_t kHalfPastMs = 1'700'044'200'000; // 2023-11-15 10:30:00 UTC
constexpr uint64_t kFullHourMs = kHalfPastMs + 30 * kMinuteMs;

class SmartCheck : public fake::TPlatformTest {
protected:
    SmartCheck()
    {
        m_state.settings.threshold_hours = 100;
        fake::state()->enclosure.enclosure_count = 1;
        fake::state()->disk_list = [this](int enclosure, t_storage_disk_list &out) {
            out.disks = m_enclosures[enclosure];
            return out.disks.empty() ? 0x12U : 0U;
        };
        fake::state()->smart = [this](int id, t_storage_smart_info &out) {
            return m_hours.contains(id) ? fake::give(0U, m_hours[id], out.power_on_hours) : 6U;
        };
    }
    /* The overall state after a check at that time; minute 0 makes it a full one. */
    int32_t check(uint64_t wall_ms)
    {
        fake::g_wall_ms = wall_ms;
        do_update_check(&m_state);
        return m_state.overall;
    }

    TSmartState m_state;
    std::map<int, std::vector<t_storage_disk>> m_enclosures;
    std::map<int, int32_t> m_hours; // by disk number; the others cannot be read
};

TEST_F(SmartCheck, ADiskIsAsBadAsTheWorseOfItsStatusAndItsAge)
{
    const int32_t cases[][4] = {// status, hours; state, hours kept
                                {0, 100, 0, 100}, {0, 101, 1, 101}, {0, -5, 0, 0},
                                {1, 0, 2, 0},     {2, 101, 3, 101}, {3, 101, 1, 101}};
    uint64_t now_ms = kFullHourMs;
    for (const auto &[status, hours, level, kept] : cases) {
        m_enclosures[0] = {{"disk_1f", "label", "yes", status}};
        m_hours = {{0x1f, hours}};
        m_state.disks.clear();
        EXPECT_EQ(check(now_ms += 60 * kMinuteMs), level);
        EXPECT_EQ(m_state.disks["disk_1f"].hours, kept);
        EXPECT_EQ(m_state.disks["disk_1f"].number, 0x1f);
    }
}

TEST_F(SmartCheck, BetweenFullChecksOnlyTheOldAreChecked)
{
    m_enclosures[0] = {{"disk_01", "a", "yes", 2}, {"disk_02", "b", "yes", 0}, {"disk_03", "c", "", 2}};
    m_hours = {{1, 5}, {2, 101}};
    EXPECT_EQ(check(kHalfPastMs), kSmartError); // the first of all
    EXPECT_EQ(m_state.disks.size(), 2U);        // the empty slot is none
    EXPECT_EQ(check(kHalfPastMs + kMinuteMs), kSmartHourWarning);
    m_enclosures[0][1].status = 1; // seen once, then no longer merely old
    EXPECT_EQ(check(kHalfPastMs + 2 * kMinuteMs), kSmartWarning);
    EXPECT_EQ(check(kHalfPastMs + 3 * kMinuteMs), kSmartNormal);
    EXPECT_EQ(check(kFullHourMs + 59'000), kSmartError);
    EXPECT_EQ(check(kFullHourMs + 59'900), kSmartNormal); // the hour has had its full one

    m_hours.erase(2); // the next full one cannot read this: no hours, but the old ones stay known
    m_enclosures[0][1].status = 0;
    check(kFullHourMs + 60 * kMinuteMs);
    EXPECT_EQ(m_state.disks["disk_02"].state, kSmartNormal);
    EXPECT_EQ(m_state.disks["disk_02"].hours, 101);
}

TEST_F(SmartCheck, EachFullCheckWritesTheHoursAnew)
{
    m_enclosures = {{0, {{"disk_0a", "\"Fast\" disk (/dev/sda)", "yes", 0}}},
                    {1, {{"disk_10", std::string(300, 'x') + "\"", "yes", 0}, {"odd", "", "yes", 0}}}};
    fake::state()->enclosure.enclosure_count = 2;
    m_hours = {{0, 3}, {10, 12345}, {16, -1}};
    write_file("/tmp/hdd_power_on_hour", "old\n");
    fake::state()->popen = [](const fake::argv_t &) { return std::string(1020, 'r') + "disk_0a"; };
    check(kHalfPastMs);
    const std::string hours = "disk_0a - [Fast disk (/dev/sda)] power on hour [   12345]\n"
                              "disk_10 - [" +
                              std::string(255, 'x') + "] power on hour [       0]\nodd - [] power on hour [       3]\n";
    EXPECT_EQ(read_file("/tmp/hdd_power_on_hour"), hours);
    EXPECT_EQ(m_state.recording_disks, std::string(1020, 'r') + "disk");
    check(kHalfPastMs + kMinuteMs); // a light one leaves both alone
    EXPECT_EQ(read_file("/tmp/hdd_power_on_hour"), hours);
    EXPECT_EQ(fake::state()->programs, (std::vector<fake::argv_t>{{"/usr/bin/vcmd", "get_rec_disk_list"}}));
}

TEST_F(SmartCheck, ACancelledReadingIsNoFinding)
{
    m_enclosures[0] = {{"disk_01", "a", "yes", 0}, {"disk_02", "b", "yes", 0}};
    m_hours = {{1, 101}, {2, 5}};
    EXPECT_EQ(check(kHalfPastMs), kSmartHourWarning);
    fake::state()->smart = [](int id, t_storage_smart_info &) { return id == 1 ? PAL_CANCELLED : 0U; };
    EXPECT_EQ(check(kFullHourMs), kSmartHourWarning); // the second disk is not read
    fake::state()->disk_list = [](int, t_storage_disk_list &) { return PAL_CANCELLED; };
    EXPECT_EQ(check(kFullHourMs + 60 * kMinuteMs), kSmartHourWarning);
    EXPECT_EQ(log_text(kLogSmart), "");
    EXPECT_EQ(m_state.disks["disk_01"].state, kSmartHourWarning);
    EXPECT_EQ(m_state.disks["disk_02"].hours, 5);
}

TEST_F(SmartCheck, FailuresEndTheCheckWithWhatWasFoundSoFar)
{
    fake::state()->enclosure_result = 0xab;
    write_file("/tmp/hdd_power_on_hour", "hours");
    EXPECT_EQ(check(kHalfPastMs), kSmartNormal);
    EXPECT_EQ(read_file("/tmp/hdd_power_on_hour"), "hours");
    EXPECT_TRUE(fake::state()->programs.empty());
    fake::state()->enclosure_result = 0;
    fake::state()->enclosure.enclosure_count = 2; // but the second cannot be had
    m_enclosures[0] = {{"disk_01", "a", "yes", 2}};
    fake::state()->auth_result = 7;
    EXPECT_EQ(check(kFullHourMs), kSmartError);
    EXPECT_EQ(m_state.recording_disks, ""); // no tool, no list
    EXPECT_EQ(log_text(kLogSmart),
              "do_disk_list_check(203), PAL_storage_get_enclosure_list failed,  ret=[000000ab]"
              "do_update_check(296), PAL_auth_get_auth failed,  ret=[00000007]"
              "sysstat_smart.cpp:do_disk_smart_check (149) PAL_storage_get_disk_smart_info failed=[6]"
              "do_disk_list_check(222), PAL_storage_get_disk_list failed,  ret=[00000012]");
}

} // namespace
