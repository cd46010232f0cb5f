#include "health/sysstat_syshealth.h"

#include <new>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"
#include "platform/time_stamp.h"

namespace {

class SysHealth : public fake::TQuietTest {
protected:
    /* A check after that time and what it posted. Without a fan's status the
     * platform does not answer. */
    std::string check(uint64_t after_ms, const char *fan)
    {
        fake::advance_ms(after_ms);
        fake::state()->syshealth_result = fan == nullptr ? 5 : 0;
        fake::state()->syshealth = {"fan text", {{"fan1", "0"}, {"fan2", fan != nullptr ? fan : "9"}}};
        fake::state()->requests.clear();
        syshealth_check(&m_state, current_time_stamp_mono_r());
        const auto requests = fake::state()->requests;
        return requests.empty() ? "" : requests.back().body;
    }

    TSyshealthState m_state;
};

TEST_F(SysHealth, ReportsTheFirstFindingThenChangesOnlyHeardOrNot)
{
    EXPECT_EQ(check(0, "0"), R"({"utc_time":"1700000000","fan_update":"normal"})");
    EXPECT_EQ(check(60000, "0"), "");
    EXPECT_EQ(check(59999, "9"), ""); // too soon
    EXPECT_EQ(check(1, "9"), R"({"utc_time":"1700000120","fan_update":"error"})");
    EXPECT_EQ(check(60000, "9"), "");
    EXPECT_EQ(check(60000, nullptr), ""); // no answer counts as normal, silently
    EXPECT_FALSE(m_state.fan_error);
    EXPECT_EQ(check(60000, nullptr), "");
    EXPECT_EQ(check(60000, "9"), R"({"utc_time":"1700000360","fan_update":"error"})");
    EXPECT_EQ(check(60000, "8"), R"({"utc_time":"1700000420","fan_update":"normal"})");
    const std::string failed = "sysstat_syshealth.cpp:do_get_fan_state (70) NasHTTPAPI_SYSHEALTH_info (5)\n";
    const std::string unheard = "sysstat_syshealth.cpp:do_update (114) ssci_POST_request failed (3)\n";
    EXPECT_EQ(log_text(kLogSysHealth), unheard + unheard + failed + failed + unheard + unheard);
}

TEST_F(SysHealth, AChangeWhoseReportThrewIsReportedByTheNextCheck)
{
    (void)check(0, "0");
    fake::state()->request = [](const fake::TRequest &, std::string *) -> long long { throw std::bad_alloc(); };
    EXPECT_THROW((void)check(60000, "9"), std::bad_alloc);
    fake::state()->request = [](const fake::TRequest &, std::string *) { return 0LL; };
    EXPECT_EQ(check(60000, "9"), R"({"utc_time":"1700000120","fan_update":"error"})");
    EXPECT_EQ(check(60000, "9"), "");
    EXPECT_EQ(log_text(kLogSysHealth), "sysstat_syshealth.cpp:do_update (114) ssci_POST_request failed (3)\n");
}

TEST_F(SysHealth, AFirstQueryThatFailsUsesUpTheFirstReport)
{
    fake::g_mono_ms = 0; // the machine has just started
    EXPECT_EQ(check(59999, nullptr), "");
    EXPECT_EQ(m_state.last_utc_time, 1700000059U); // attempted all the same
    EXPECT_EQ(check(60000, "0"), "");
}

TEST_F(SysHealth, AThreadThatIsWokenSleepsForTheRestOfItsMinute)
{
    sysstat_syshealth_init();
    fake::pass_waits(0);
    fake::g_mono_ms -= 40'500; // its wait of a minute ends after 19.5 s
    for (const uint64_t wait_ms : {60'000U, 41'000U, 60'000U}) {
        const uint64_t begin_ms = fake::g_mono_ms;
        fake::pass_waits(1);
        EXPECT_EQ(fake::g_mono_ms - begin_ms, wait_ms);
    }
    sysstat_syshealth_uninit();
}

TEST_F(SysHealth, StatusCodesAreDecimalNumbers)
{
    for (const char *failed : {"9", "09", "9x", " 9"})
        EXPECT_TRUE(syshealth_fan_failed({{"a", "0"}, {"b", failed}})) << failed;
    for (const char *good : {"", "0", "x9", "90", "-9", "99999999999999999999"})
        EXPECT_FALSE(syshealth_fan_failed({{"a", good}})) << good;
    EXPECT_FALSE(syshealth_fan_failed({}));
}

} // namespace
