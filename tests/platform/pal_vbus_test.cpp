#include "platform/stock/hub/pal_vbus.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <syslog.h>

#include "base/text.h"
#include "platform/interrupt.h"
#include "platform/ssci.h"

namespace {

TEST(BusMessages, KeepTheOrderOfTheirPartsAndAMissingTextIsNull)
{
    const char *const texts[] = {"'$LOG_LEVEL_ERROR'", "a\"b\\\n%s", "", nullptr};
    EXPECT_EQ(vbus_notify_body(texts), R"({"texts":["'$LOG_LEVEL_ERROR'","a\"b\\\n%s","",null]})");
    EXPECT_EQ(vbus_notify_line(texts), "'$LOG_LEVEL_ERROR' a\"b\\\n%s  -");
    EXPECT_EQ(vbus_log_priority(texts[0]), LOG_ERR);
    EXPECT_EQ(vbus_log_priority("'$LOG_LEVEL_WARN'"), LOG_WARNING);
    EXPECT_EQ(vbus_log_priority(nullptr), LOG_NOTICE);

    t_vbus_reverse_proxy_info request;
    request.rules = {{"a\"b", 1, "bs-1", 60}, {"", 0, "", -1}};
    EXPECT_EQ(vbus_rules_body(request), R"({"rules":[{"GUID":"a\"b","rule_type":1,"bs_id":"bs-1","value":60},)"
                                        R"({"GUID":"","rule_type":0,"bs_id":"","value":-1}]})");
    std::string response;
    EXPECT_EQ(vbus_rules_answer(R"({"ret":7,"resp":"no such rule"})", &response), 7U);
    EXPECT_EQ(response, "no such rule");
    for (const char *body : {R"({"ret":"0","resp":[]})", "oops", "[]"}) {
        EXPECT_EQ(vbus_rules_answer(body, &response), static_cast<uint32_t>(EPROTO)) << body;
        EXPECT_EQ(response, body);
    }
}

TEST(BusMessages, AreLoggedAndFailWithTheCall)
{
    const std::atomic<bool> stop = true; // a hub that runs here is not spoken to
    platform_interrupt_on(&stop);
    openlog("syslog", LOG_PERROR, LOG_USER);
    testing::internal::CaptureStderr();
    const auto cancelled = static_cast<uint32_t>(SSCI_CANCELLED);
    EXPECT_EQ(PAL_vbus_nc_notify("ERROR", "%s", "c", "d", "1", "2", "3", "4", "5", "6", "7", "8", "9", nullptr),
              cancelled);
    t_vbus_reverse_proxy_info answer;
    EXPECT_EQ(PAL_vbus_update_reverse_proxy({}, answer), cancelled);
    EXPECT_EQ(answer.response, ssci_strerror(__ssci_errno()));
    EXPECT_EQ(PAL_vbus_ostrapro_disable(), cancelled);
    platform_interrupt_on(nullptr);
    closelog();
    std::string log = "syslog: ERROR %s c d 1 2 3 4 5 6 7 8 9 -\n";
    for (const char *path : {"nc_notify", "reverse_proxy", "ostrapro_disable"})
        log += text_format("POST /vbus/%s to the hub failed (%lld)\n", path, static_cast<long long>(SSCI_CANCELLED));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), log);
}

} // namespace
