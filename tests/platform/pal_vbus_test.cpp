#include "platform/stock/hub/pal_vbus_body.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <syslog.h>

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
