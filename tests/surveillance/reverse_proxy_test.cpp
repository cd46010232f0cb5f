#include "surveillance/reverse_proxy.h"

#include <new>
#include <thread>
#include <tuple>

#include "platform/interrupt.h"
#include "platform/time_stamp.h"
#include "surveillance/watcher_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const fake::argv_t kReload{"/usr/sbin/apache2", "-k", "graceful", "-f", "/etc/apache2/apache2.conf"};
const std::string kExtra = "/etc/reverseproxy/extra/";
const std::string kAt = "[rule_expired_detect][";
constexpr const char *kDone = R"({"err_code": 0})";

class ReverseProxy : public TWatcherTest {
protected:
    ~ReverseProxy() override { reverse_proxy_uninit(); }

    /* A rule that was used `age_min` ago and is kept for ten minutes. */
    static std::string rule(const std::string &guid, int type, int age_min = 0, unsigned less_ms = 0)
    {
        const uint64_t used_ms = current_time_stamp() - static_cast<uint64_t>(age_min) * 60000 + less_ms;
        return R"({"GUID": ")" + guid + R"(", "rule_type": )" + std::to_string(type) + R"(, "last_access_time": )" +
               std::to_string(used_ms) + R"(, "retention_time": 10, "bs_id": "bs-)" + guid + "\"}";
    }
    static std::string list(const std::string &rules)
    {
        return R"({"err_code": 0, "ReverseProxyRuleList": [)" + rules + "]}";
    }
    /* The first pass over an answer. */
    static void start(const std::string &answer)
    {
        peers("GET", answer, kDone);
        reverse_proxy_init();
        fake::pass_waits(0);
    }
    static std::vector<std::string> deleted()
    {
        std::vector<std::string> guids;
        for (const fake::TRequest &request : sent("DELETE"))
            guids.push_back(request.params.at(1).second);
        return guids;
    }
    static std::string file(const std::string &guid) { return kExtra + guid + ".conf"; }
    static std::string log() { return log_text(kLogReverseProxy); }
};

TEST_F(ReverseProxy, WhatWasDeletedBeforeAPassThrewIsRemovedByTheNextOne)
{
    write_file(file("gone"), "ProxyPass");
    fake::state()->request = [](const fake::TRequest &request, std::string *answer) {
        *answer = request.verb == "GET" ? list(rule("gone", 0) + "," + rule("other", 0)) : kDone;
        if (request.verb == "DELETE" && request.params.at(1).second == "other")
            throw std::bad_alloc();
        return 0LL;
    };
    reverse_proxy_init();
    fake::pass_waits(0);
    EXPECT_TRUE(exists(file("gone")));
    fake::state()->request = nullptr; // no list any more
    fake::pass_waits(1);
    EXPECT_FALSE(exists(file("gone")));
    EXPECT_THAT(told(), HasSubstr("rule_expired_detect: a pass failed: "));
    EXPECT_EQ(log(), kAt + "199] start" + kAt + "85] get channel ret=[3]" + kAt +
                         "74] get ssci_strerror(7)=[connection refused]");
}

TEST_F(ReverseProxy, EveryStepOfAPassIsTakenWhateverFails)
{
    write_file(file("z"), "ProxyPass");
    fake::state()->auth_result = 7;
    fake::state()->proxy_result = 9;
    fake::state()->proxy_answer.response = "busy";
    fake::state()->exec = [](const fake::argv_t &) { return 4; };
    start(list("7," + rule("missing", 0) + "," + rule("z", 0) + "," + rule("one", 1) + "," + rule("three", 3)));
    EXPECT_FALSE(exists(file("z")));
    EXPECT_THAT(fake::state()->programs, ElementsAre(kReload));
    ASSERT_EQ(fake::state()->proxy_requests.size(), 1U);
    const t_vbus_reverse_proxy_rule_info one = fake::state()->proxy_requests[0].rules.at(0);
    EXPECT_EQ(std::tie(one.guid, one.rule_type, one.bs_id, one.value), std::tuple("one", 1, "bs-one", 60));
    EXPECT_EQ(line_of(fake::state()->requests[0]), "GET 127.0.0.1:10141/cfg/ReverseProxy 5");
    EXPECT_EQ(fake::state()->requests[0].params, (ssci_params{{"act", "list"}}));
    EXPECT_EQ(line_of(sent("DELETE")[3]), "DELETE 127.0.0.1:10141/cfg/ReverseProxy 5");
    EXPECT_EQ(sent("DELETE")[3].params, (ssci_params{{"act", "delete"}, {"GUID", "three"}, {"rule_type", "3"}}));
    EXPECT_EQ(log(), kAt + "199] start" + kAt + "102] 1 unreadable rules left alone" + kAt +
                         "139] unknown rule_type=3" + kAt +
                         "150] remove file [/etc/reverseproxy/extra/missing.conf] failed, ret=[-1]" + kAt +
                         "157] kestrel_exec failed, ret=[4]" + kAt + "166] get auth failed, ret=[7]" + kAt +
                         "171] PAL del bs rule failed, ret=9, resp=busy");
}

TEST_F(ReverseProxy, AfterTheFirstPassAFailureLeavesFreshRulesAloneAndExpiredOnesGo)
{
    start(list(""));
    const uint64_t begin_ms = current_time_stamp();
    for (const char *answer : {"{", R"({"err_code": 5, "ReverseProxyRuleList": []})"}) {
        peers("GET", answer, kDone);
        fake::pass_waits(1);
        peers("GET", list(rule("fresh", 0, -10)), kDone);
        fake::pass_waits(1);
    }
    EXPECT_EQ(current_time_stamp() - begin_ms, 4 * 300'000U); // a failed pass waits as long
    std::string refused = list(rule("old", 0, 60));
    refused.replace(refused.find('0'), 1, "5");
    peers("GET", refused, kDone);
    fake::pass_waits(1);
    EXPECT_EQ(deleted().size(), 0U);
    EXPECT_THAT(log(), testing::EndsWith("}[rule_expired_detect][98] get proxy rule failed, res=" + refused));
    for (const char *guid : {"old", "kept"})
        write_file(file(guid), "ProxyPass");
    peers("GET", list(rule("kept", 0, 5, 1) + "," + rule("old", 0, 5)), kDone); // five minutes pass before it is asked
    fake::pass_waits(1);
    EXPECT_THAT(deleted(), ElementsAre("old"));
    EXPECT_TRUE(exists(file("kept")) && !exists(file("old")));
}

TEST_F(ReverseProxy, ARuleCannotRemoveFilesElsewhere)
{
    std::string rules = rule("cut\\u0000", 0);
    write_file(kExtra + "cut", "keep");
    const std::string guids[] = {"../../passwd", "", "sub/x", "..", "."};
    for (const std::string &guid : guids) {
        write_file(file(guid), "keep");
        rules += "," + rule(guid, 0);
    }
    start(list(rules));
    EXPECT_EQ(deleted().size(), 6U);
    EXPECT_THAT(log(), HasSubstr("150] remove file [/etc/reverseproxy/extra/sub/x.conf] failed, ret=[-1]["));
    EXPECT_TRUE(exists(kExtra + "cut"));
    for (const std::string &guid : guids)
        EXPECT_TRUE(exists(file(guid))) << guid;
}

TEST_F(ReverseProxy, APassWithoutAListDoesNotCountAsTheFirstAndARefusedRuleStays)
{
    start("{");
    EXPECT_THAT(log(), testing::StartsWith(kAt + "199] start" + kAt + "93] parse strResponse failed, error=["));
    const std::tuple<long long, std::string, std::string> cases[] = {
        {3, "", kAt + "116] delete rule ret=[3]" + kAt + "74] get ssci_strerror(7)=[connection refused]"},
        {2, R"({"err_code":5})", kAt + "116] delete rule ret=[2]"},
        {2, kDone, kAt + "116] delete rule ret=[2]"},
        {0, "garbage", ""}};
    for (auto [result, answer, logged] : cases) {
        const size_t before = deleted().size(), log_size = log().size();
        peers("GET", list(rule("a", 0, before == 0 ? 0 : 60) + "," + rule("b", 1, 60)), answer, 0, result);
        fake::pass_waits(1);
        EXPECT_EQ(deleted().size(), before + 2); // the next rule has its turn all the same
        logged.append(kAt + "124] delete rule failed, response=[").append(answer + "]");
        EXPECT_EQ(log().substr(log_size), logged + logged);
    }
    EXPECT_TRUE(fake::state()->programs.empty() && fake::state()->proxy_requests.empty());
}

TEST_F(ReverseProxy, AStopBeginsNoOtherRuleButFinishesTheOneBegun)
{
    write_file(file("a"), "ProxyPass");
    const std::string rules = list(rule("a", 0) + "," + rule("b", 1) + "," + rule("c", 0));
    fake::state()->request = [&](const fake::TRequest &request, std::string *out) {
        *out = request.verb == "GET" ? rules : kDone;
        while (deleted().size() == 2 && fake::state()->cond_signals == 0) // until the stop is asked for
            std::this_thread::yield();
        return platform_interrupted() ? 3 : 0;
    };
    reverse_proxy_init();
    while (deleted().size() < 2)
        std::this_thread::yield();
    reverse_proxy_uninit();
    EXPECT_THAT(deleted(), ElementsAre("a", "b"));
    EXPECT_FALSE(exists(file("a")));
    EXPECT_THAT(fake::state()->programs, ElementsAre(kReload));
    ASSERT_EQ(fake::state()->proxy_requests.size(), 1U);
    EXPECT_EQ(fake::state()->proxy_requests[0].rules.size(), 1U);
    EXPECT_EQ(log(), "[rule_expired_detect][199] start");
}

} // namespace
