#include "surveillance/proxy_rules.h"

#include <gtest/gtest.h>
#include <tuple>

namespace {

TEST(ProxyRules, RemainingTimeWrapsWithTheRetentionInMilliseconds)
{
    constexpr int64_t kNow = 1700000000000;
    /* Last access, minutes of retention, what remains. */
    const std::tuple<int64_t, int32_t, int64_t> cases[] = {{kNow, 0, 0},
                                                           {kNow - 60000, 1, 0},
                                                           {kNow - 59999, 1, 1},
                                                           {kNow, 35791, 2147460000},
                                                           {kNow, 35792, -2147447296},
                                                           {kNow, 71583, 12704},
                                                           {kNow, -1, -60000},
                                                           {kNow, INT32_MIN, 0},
                                                           {INT64_MAX, 1, INT64_MAX - kNow + 60000}};
    for (const auto &[last_access, minutes, remaining] : cases)
        EXPECT_EQ(proxy_remaining_ms({"", 0, last_access, minutes, ""}, kNow), remaining) << minutes;
}

TEST(ProxyRules, AnAnswerIsASuccessOnlyWithErrorCodeZero)
{
    const std::string too_deep(100000, '[');
    const auto err_code_of = [&](const std::string &text) {
        TProxyAnswer answer;
        std::string error;
        const int result = proxy_answer_parse(text, &answer, &error);
        EXPECT_EQ(result, error.empty() ? 0 : -1) << text;
        EXPECT_TRUE(answer.rules.empty());
        EXPECT_EQ(error == "too many values, or nested too deeply", text == too_deep);
        return result == 0 ? answer.err_code : 7;
    };
    EXPECT_EQ(err_code_of(R"({"err_code": 0})"), 0);
    EXPECT_EQ(err_code_of(R"({"err_code": -3})"), -3);
    for (const char *text : {"{}", "[]", "0", "null", "\"text\"", R"({"err_code": "0"})", R"({"err_code": null})",
                             R"({"ReverseProxyRuleList": {"a": {"GUID": "b"}}})", R"({"err_code": false})",
                             R"({"err_code": [0]})", R"({"err_code": 4294967296})"})
        EXPECT_EQ(err_code_of(text), kProxyNoErrCode) << text;
    for (const char *text : {"", "{\"err_code\": 0", "<html>", R"({"err_code": 1e400})", too_deep.c_str()})
        EXPECT_EQ(err_code_of(text), 7) << text;
}

TEST(ProxyRules, LeavesOutWhatIsNoRule)
{
    TProxyAnswer answer;
    std::string error, most(4096, 'x');
    ASSERT_EQ(proxy_answer_parse(R"({"err_code": 0, "ReverseProxyRuleList": [
        {"GUID": "a", "rule_type": 1, "last_access_time": 1700000000000, "retention_time": 5, "bs_id": "b"},
        7, null, "x", [], {"GUID": 7}, {"GUID": "s", "rule_type": "0"}, {"GUID": "s", "rule_type": 0.5},
        {"last_access_time": "170"}, {"last_access_time": 9223372036854775808}, {"last_access_time": 1e30},
        {"retention_time": 2147483648}, {"retention_time": {}}, {"bs_id": ["b"]}, {}, {"GUID": ")" +
                                     most + R"("}, {"bs_id": ")" + most + R"("}, {"GUID": "x)" + most +
                                     R"("}, {"bs_id": "x)" + most + R"("}]})",
                                 &answer, &error),
              0);
    EXPECT_EQ(answer.unreadable, 15);
    ASSERT_EQ(answer.rules.size(), 4U); // zeros for what is missing
    const TProxyRule &rule = answer.rules[0];
    EXPECT_EQ(std::tie(rule.guid, rule.rule_type, rule.last_access_time, rule.retention_time, rule.bs_id),
              std::make_tuple("a", 1, 1700000000000, 5, "b"));
}

} // namespace
