#include "platform/stock/pal_vbus_body.h"

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

TEST(BusMessages, RulesGoOutAndTheirAnswerIsRead)
{
    t_vbus_reverse_proxy_info request;
    EXPECT_EQ(vbus_rules_body(request), R"({"rules":[]})");
    request.rules = {{"g-1", 1, "bs\"", 60}, {"g-2", 1, "", 60}};
    EXPECT_EQ(vbus_rules_body(request), R"({"rules":[{"GUID":"g-1","rule_type":1,"bs_id":"bs\"","value":60},)"
                                        R"({"GUID":"g-2","rule_type":1,"bs_id":"","value":60}]})");
    struct T_CASE {
        const char *body;
        uint32_t result;
        const char *response;
    };
    for (const T_CASE &one : {T_CASE{R"({"ret":0,"resp":"done"})", 0, "done"},
                              T_CASE{R"({"ret":7,"resp":"no such rule"})", 7, "no such rule"},
                              T_CASE{R"({"ret":"0","resp":[]})", EPROTO, R"({"ret":"0","resp":[]})"},
                              T_CASE{"oops", EPROTO, "oops"}, T_CASE{"[]", EPROTO, "[]"}}) {
        std::string response;
        EXPECT_EQ(vbus_rules_answer(one.body, &response), one.result) << one.body;
        EXPECT_EQ(response, one.response);
    }
}

} // namespace
