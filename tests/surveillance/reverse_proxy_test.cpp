#include "surveillance/reverse_proxy.h"

#include <atomic>
#include <thread>
#include <tuple>

#include "platform/interrupt.h"
#include "platform/time_stamp.h"
#include "surveillance/watcher_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

const fake::argv_t kReload{"/usr/sbin/apache2", "-k", "graceful", "-f", "/etc/apache2/apache2.conf"};
const std::string kExtra = "/etc/reverseproxy/extra/";
constexpr const char *kDone = R"({"err_code": 0})";

class ReverseProxy : public TWatcherTest {
protected:
    ReverseProxy() : TWatcherTest(reverse_proxy_uninit) {}

    /* A rule that was used `age_min` ago and is kept for ten minutes. */
    static std::string rule(const std::string &guid, int type, int age_min = 0)
    {
        const uint64_t used_ms = current_time_stamp() - static_cast<uint64_t>(age_min) * 60000;
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
        for (const fake::T_REQUEST &request : sent("DELETE"))
            guids.push_back(request.params.at(1).second);
        return guids;
    }
    static std::string file(const std::string &guid) { return kExtra + guid + ".conf"; }
    static std::string log() { return log_text(kLogReverseProxy); }
};

TEST_F(ReverseProxy, TheFirstPassRemovesEverythingAndLaterOnesWhatExpired)
{
    for (const char *guid : {"young", "old", "kept"})
        write_file(file(guid), "ProxyPass");
    start(list(rule("young", 0) + "," + rule("other", 0)));
    EXPECT_THAT(deleted(), ElementsAre("young", "other"));
    EXPECT_FALSE(exists(file("young")));
    EXPECT_THAT(log(), testing::EndsWith("] remove file [/etc/reverseproxy/extra/other.conf] failed, ret=[-1]"));
    EXPECT_THAT(fake::programs(), ElementsAre(kReload)); // once for both
    const auto list_call = fake::requests()[0], delete_call = fake::requests()[1];
    EXPECT_EQ(line_of(list_call), "GET 127.0.0.1:10141/cfg/ReverseProxy 5");
    EXPECT_EQ(list_call.params, (ssci_params{{"act", "list"}}));
    EXPECT_EQ(line_of(delete_call), "DELETE 127.0.0.1:10141/cfg/ReverseProxy 5");
    EXPECT_EQ(delete_call.params, (ssci_params{{"act", "delete"}, {"GUID", "young"}, {"rule_type", "0"}}));

    peers("GET", list(rule("kept", 0, 4) + "," + rule("old", 0, 5)), kDone); // five minutes pass before it is asked
    fake::pass_waits(1);
    EXPECT_THAT(deleted(), ElementsAre("young", "other", "old"));
    EXPECT_TRUE(exists(file("kept")) && !exists(file("old")));
}

TEST_F(ReverseProxy, RulesOfTheBusGoThereTogetherAndOthersNowhere)
{
    fake::state()->proxy_result = 5;
    fake::state()->proxy_answer.response = "busy";
    fake::state()->auth_result = 4000000000U;
    start(list(rule("a", 1) + "," + rule("b", 2) + "," + rule("c", 1)));
    const auto requests = fake::state()->proxy_requests;
    ASSERT_TRUE(requests.size() == 1 && requests[0].rules.size() == 2);
    const t_vbus_reverse_proxy_rule_info &rule_c = requests[0].rules[1];
    EXPECT_EQ(std::tie(rule_c.guid, rule_c.rule_type, rule_c.bs_id, rule_c.value), std::make_tuple("c", 1, "bs-c", 60));
    EXPECT_THAT(log(), MatchesRegex(R"(\[rule_expired_detect\]\[[0-9]+\] start)"
                                    R"(\[rule_expired_detect\]\[[0-9]+\] unknown rule_type=2)"
                                    R"(\[rule_expired_detect\]\[[0-9]+\] get auth failed, ret=\[4000000000\])"
                                    R"(.*\]\[[0-9]+\] PAL del bs rule failed, ret=5, resp=busy)"));
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
    fake::on_exec([](const fake::argv_t &) { return -2; });
    start(list(rules));
    EXPECT_EQ(deleted().size(), 6U);
    EXPECT_TRUE(exists(kExtra + "cut"));
    for (const std::string &guid : guids) {
        EXPECT_TRUE(exists(file(guid))) << guid;
        EXPECT_THAT(log(), HasSubstr("remove file [" + file(guid) + "] failed, ret=[-1]"));
    }
    EXPECT_THAT(log(), HasSubstr("kestrel_exec failed, ret=[-2]"));
}

TEST_F(ReverseProxy, APassWithoutAListDoesNotCountAsTheFirstAndARefusedRuleStays)
{
    using T_CASES = std::vector<std::tuple<long long, const char *, const char *>>; // result, answer, log
    start("{");
    EXPECT_THAT(log(), HasSubstr("] parse strResponse failed, error=[* Line 1, Column 2\n"));
    for (const auto &[result, answer, logged] :
         T_CASES{{0, R"({"err_code": 8})", R"(] get proxy rule failed, res={"err_code": 8})"},
                 {2, "", "] get channel ret=[2]"},
                 {3, "", "] get ssci_strerror(7)=[connection refused]"}}) {
        peers("GET", answer, kDone, result);
        fake::pass_waits(1);
        EXPECT_TRUE(log().ends_with(logged)) << log();
    }
    for (const auto &[result, answer, logged] :
         T_CASES{{3, "", "] get ssci_strerror(7)=[connection refused][rule_expired_detect]["},
                 {2, "", "] delete rule ret=[2][rule_expired_detect]["},
                 {0, "garbage", "] delete rule failed, response=[garbage]"},
                 {0, R"({"err_code": "0"})", R"(] delete rule failed, response=[{"err_code": "0"}])"}}) {
        const size_t before = deleted().size();
        peers("GET", list(rule("a", 0, before == 0 ? 0 : 60) + "," + rule("b", 1, 60)), answer, 0, result);
        fake::pass_waits(1);
        EXPECT_EQ(deleted().size(), before + 2); // the next rule has its turn all the same
        EXPECT_THAT(log(), HasSubstr(logged));
    }
    EXPECT_TRUE(fake::programs().empty() && fake::state()->proxy_requests.empty());
}

TEST_F(ReverseProxy, AStopBeginsNoOtherRuleButFinishesTheOneBegun)
{
    write_file(file("a"), "ProxyPass");
    const std::string rules = list(rule("a", 0) + "," + rule("b", 1) + "," + rule("c", 0));
    std::atomic<bool> in_delete = false;
    fake::on_request([&](const fake::T_REQUEST &request, std::string *out) {
        *out = request.verb == "GET" ? rules : kDone;
        in_delete = request.verb == "DELETE" && request.params.at(1).second == "b";
        in_delete.notify_all();
        while (in_delete && fake::state()->cond_signals == 0)
            std::this_thread::yield();
        return platform_interrupted() ? 3 : 0;
    });
    reverse_proxy_init();
    in_delete.wait(false);
    reverse_proxy_uninit();
    EXPECT_THAT(deleted(), ElementsAre("a", "b"));
    EXPECT_FALSE(exists(file("a")));
    EXPECT_THAT(fake::programs(), ElementsAre(kReload));
    ASSERT_EQ(fake::state()->proxy_requests.size(), 1U);
    EXPECT_EQ(fake::state()->proxy_requests[0].rules.size(), 1U);
}

} // namespace
