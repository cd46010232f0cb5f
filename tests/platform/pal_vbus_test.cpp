#include "platform/stock/hub/pal_vbus.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <gtest/gtest.h>
#include <syslog.h>

#include "base/text.h"
#include "platform/interrupt.h"
#include "platform/ssci.h"

static std::string g_syslog; // one line for each call

static void log_line(int priority, const char *format, va_list arguments)
{
    char text[256];
    (void)vsnprintf(text, sizeof(text), format, arguments);
    g_syslog += std::to_string(priority) + " " + text + "\n";
}

/* In place of the C library's, and of the one that hardened code calls. */
extern "C" void test_syslog(int priority, const char *format, ...) __asm__("syslog");
extern "C" void test_syslog(int priority, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_line(priority, format, arguments);
    va_end(arguments);
}
extern "C" void test_syslog_chk(int priority, int flag, const char *format, ...) __asm__("__syslog_chk");
extern "C" void test_syslog_chk(int priority, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_line(priority, format, arguments);
    va_end(arguments);
}

namespace {

TEST(BusMessages, AMissingTextIsNull)
{
    const char *const texts[] = {"'$LOG_LEVEL_ERROR'", "a\"b\\\n%s", "", nullptr};
    EXPECT_EQ(vbus_notify_body(texts), R"({"texts":["'$LOG_LEVEL_ERROR'","a\"b\\\n%s","",null]})");
    EXPECT_EQ(vbus_notify_line(texts), "'$LOG_LEVEL_ERROR' a\"b\\\n%s  -");
    EXPECT_EQ(vbus_log_priority(texts[0]), LOG_ERR);
    EXPECT_EQ(vbus_log_priority("'$LOG_LEVEL_WARN'"), LOG_WARNING);
    EXPECT_EQ(vbus_log_priority(nullptr), LOG_NOTICE);
}

TEST(BusMessages, AreLoggedAndFailWithTheCall)
{
    const std::atomic<bool> stop = true; // a hub that runs here is not spoken to
    platform_interrupt_on(&stop);
    testing::internal::CaptureStderr();
    const auto cancelled = static_cast<uint32_t>(SSCI_CANCELLED);
    EXPECT_EQ(PAL_vbus_nc_notify("ERROR", "%s", "c", "d", "1", "2", "3", "4", "5", "6", "7", "8", "9", nullptr),
              cancelled);
    EXPECT_EQ(g_syslog, std::to_string(LOG_ERR) + " ERROR %s c d 1 2 3 4 5 6 7 8 9 -\n");
    t_vbus_reverse_proxy_info answer;
    EXPECT_EQ(PAL_vbus_update_reverse_proxy({}, answer), cancelled);
    EXPECT_EQ(answer.response, ssci_strerror(__ssci_errno()));
    EXPECT_EQ(PAL_vbus_ostrapro_disable(), cancelled);
    platform_interrupt_on(nullptr);
    std::string log;
    for (const char *path : {"nc_notify", "reverse_proxy", "ostrapro_disable"})
        log += text_format("POST /vbus/%s to the hub failed (%lld)\n", path, static_cast<long long>(SSCI_CANCELLED));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), log);
}

TEST(BusMessages, RulesAreListedInTheirOrder)
{
    t_vbus_reverse_proxy_info request;
    EXPECT_EQ(vbus_rules_body(request), R"({"rules":[]})");
    request.rules = {{"a\"b", 1, "bs-1", 60}, {"", 0, "", -1}};
    EXPECT_EQ(vbus_rules_body(request), R"({"rules":[{"GUID":"a\"b","rule_type":1,"bs_id":"bs-1","value":60},)"
                                        R"({"GUID":"","rule_type":0,"bs_id":"","value":-1}]})");
}

TEST(BusMessages, TheAnswerToRulesIsRead)
{
    const struct {
        const char *body;
        uint32_t result;
        const char *response;
    } cases[] = {{R"({"ret":7,"resp":"no such rule"})", 7, "no such rule"},
                 {R"({"ret":"0","resp":[]})", EPROTO, R"({"ret":"0","resp":[]})"},
                 {"oops", EPROTO, "oops"},
                 {"[]", EPROTO, "[]"}};
    for (const auto &one : cases) {
        std::string response;
        EXPECT_EQ(vbus_rules_answer(one.body, &response), one.result) << one.body;
        EXPECT_EQ(response, one.response);
    }
}

} // namespace
