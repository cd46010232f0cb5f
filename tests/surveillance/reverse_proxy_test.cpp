#include "surveillance/reverse_proxy.h"

#include <atomic>
#include <thread>

#include "platform/interrupt.h"
#include "platform/time_stamp.h"
#include "surveillance/watcher_test.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

const fake::argv_t kReload{"/usr/sbin/apache2", "-k", "graceful", "-f", "/etc/apache2/apache2.conf"};
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
    static std::string list(const std::vector<std::string> &rules)
    {
        std::string all;
        for (const std::string &one : rules)
            all += (all.empty() ? "" : ",") + one;
        return R"({"err_code": 0, "ReverseProxyRuleList": [)" + all + "]}";
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
    static std::string file(const std::string &guid) { return "/etc/reverseproxy/extra/" + guid + ".conf"; }
    static std::string log() { return log_text(kLogReverseProxy); }
};

TEST_F(ReverseProxy, TheFirstPassRemovesEverythingAndLaterOnesWhatExpired)
{
    for (const char *guid : {"young", "other", "old", "kept"})
        write_file(file(guid), "ProxyPass");
    start(list({rule("young", 0), rule("other", 0)}));
    EXPECT_THAT(deleted(), ElementsAre("young", "other"));
    EXPECT_FALSE(exists(file("young")) || exists(file("other")));
    EXPECT_THAT(fake::programs(), ElementsAre(kReload)); // once for both
    const auto requests = fake::requests();
    EXPECT_EQ(line_of(requests[0]), "GET 127.0.0.1:10141/cfg/ReverseProxy 5");
    EXPECT_EQ(requests[0].params, (ssci_params{{"act", "list"}}));
    EXPECT_EQ(line_of(requests[1]), "DELETE 127.0.0.1:10141/cfg/ReverseProxy 5");
    EXPECT_EQ(requests[1].params, (ssci_params{{"act", "delete"}, {"GUID", "young"}, {"rule_type", "0"}}));

    peers("GET", list({rule("kept", 0, 4), rule("old", 0, 5)}), kDone); // five minutes pass before it is asked
    fake::pass_waits(1);
    EXPECT_THAT(deleted(), ElementsAre("young", "other", "old"));
    EXPECT_TRUE(exists(file("kept")));
    fake::pass_waits(1);
    EXPECT_THAT(deleted(), ElementsAre("young", "other", "old", "kept", "old"));
    EXPECT_THAT(log(), HasSubstr("remove file [/etc/reverseproxy/extra/old.conf] failed, ret=[-1]"));
}

TEST_F(ReverseProxy, RulesOfTheBusGoThereTogetherAndOthersNowhere)
{
    fake::state()->proxy_result = 5;
    fake::state()->proxy_answer.response = "busy";
    fake::state()->auth_result = 4000000000U;
    start(list({rule("a", 1), rule("b", 2), rule("c", 1)}));
    EXPECT_THAT(deleted(), ElementsAre("a", "b", "c"));
    EXPECT_TRUE(fake::programs().empty());
    const auto requests = fake::state()->proxy_requests;
    ASSERT_EQ(requests.size(), 1U);
    ASSERT_EQ(requests[0].rules.size(), 2U);
    EXPECT_EQ(requests[0].rules[1].guid + requests[0].rules[1].bs_id, "cbs-c");
    EXPECT_EQ(requests[0].rules[1].rule_type, 1);
    EXPECT_EQ(requests[0].rules[1].value, 60);
    EXPECT_THAT(log(), MatchesRegex(R"(\[rule_expired_detect\]\[[0-9]+\] start)"
                                    R"(\[rule_expired_detect\]\[[0-9]+\] unknown rule_type=2)"
                                    R"(\[rule_expired_detect\]\[[0-9]+\] get auth failed, ret=\[4000000000\])"
                                    R"(.*\]\[[0-9]+\] PAL del bs rule failed, ret=5, resp=busy)"));
}

TEST_F(ReverseProxy, ARuleCannotRemoveFilesElsewhere)
{
    const std::string extra = "/etc/reverseproxy/extra/";
    const std::string victims[] = {"/etc/passwd.conf", extra + ".conf",  extra + "sub/x.conf",
                                   extra + "...conf",  extra + "..conf", extra + "cut"};
    for (const std::string &path : victims)
        write_file(path, "keep");
    fake::on_exec([](const fake::argv_t &) { return -2; });
    start(list(
        {rule("../../passwd", 0), rule("", 0), rule("sub/x", 0), rule("..", 0), rule(".", 0), rule("cut\\u0000", 0)}));
    EXPECT_EQ(deleted().size(), 6U);
    for (const std::string &path : victims)
        EXPECT_TRUE(exists(path)) << path;
    EXPECT_THAT(log(), HasSubstr("remove file [/etc/reverseproxy/extra/../../passwd.conf] failed, ret=[-1]"));
    EXPECT_THAT(log(), HasSubstr("remove file [/etc/reverseproxy/extra/.conf] failed, ret=[-1]"));
    EXPECT_THAT(log(), HasSubstr("kestrel_exec failed, ret=[-2]"));
}

TEST_F(ReverseProxy, APassWithoutAListIsLoggedAndDoesNotCountAsTheFirst)
{
    const std::string young = list({rule("a", 0)});
    start("{");
    EXPECT_THAT(log(), HasSubstr("] parse strResponse failed, error=[* Line 1, Column 2\n"));
    peers("GET", R"({"err_code": 8})", kDone);
    fake::pass_waits(1);
    EXPECT_THAT(log(), HasSubstr(R"(] get proxy rule failed, res={"err_code": 8})"));
    peers("GET", young, kDone, 2);
    fake::pass_waits(1);
    EXPECT_TRUE(log().ends_with("] get channel ret=[2]")) << log();
    peers("GET", young, kDone, 3);
    fake::pass_waits(1);
    EXPECT_TRUE(log().ends_with("] get ssci_strerror(7)=[connection refused]")) << log();
    EXPECT_TRUE(deleted().empty());
    peers("GET", list({rule("a", 0)}), kDone);
    fake::pass_waits(1);
    EXPECT_THAT(deleted(), ElementsAre("a"));
}

TEST_F(ReverseProxy, ARuleThatTheServiceKeepsIsLeftInPlace)
{
    write_file(file("a"), "ProxyPass");
    start(list({}));
    const struct {
        long long result;
        const char *answer, *logged;
    } cases[] = {
        {3, "", "] get ssci_strerror(7)=[connection refused][rule_expired_detect]["},
        {2, "", "] delete rule ret=[2][rule_expired_detect]["},
        {0, "garbage", "] delete rule failed, response=[garbage]"},
        {0, R"({"err_code": -1})", R"(] delete rule failed, response=[{"err_code": -1}])"},
        {0, R"({"err_code": "0"})", R"(] delete rule failed, response=[{"err_code": "0"}])"},
    };
    size_t calls = 0;
    for (const auto &one : cases) {
        peers("GET", list({rule("a", 0, 60), rule("b", 1, 60)}), one.answer, 0, one.result);
        fake::pass_waits(1);
        EXPECT_EQ(deleted().size(), calls += 2); // the next rule has its turn all the same
        EXPECT_THAT(log(), HasSubstr(one.logged));
    }
    EXPECT_TRUE(exists(file("a")));
    EXPECT_TRUE(fake::programs().empty() && fake::state()->proxy_requests.empty());
}

TEST_F(ReverseProxy, AStopBeginsNoOtherRuleButFinishesTheOneBegun)
{
    write_file(file("a"), "ProxyPass");
    std::atomic<bool> in_delete = false;
    const std::string rules = list({rule("a", 0), rule("b", 0)});
    fake::on_request([&](const fake::T_REQUEST &request, std::string *out) {
        *out = request.verb == "GET" ? rules : kDone;
        in_delete = request.verb == "DELETE";
        in_delete.notify_all();
        while (in_delete && !platform_interrupted())
            std::this_thread::yield();
        return 0;
    });
    reverse_proxy_init();
    in_delete.wait(false);
    reverse_proxy_uninit();
    EXPECT_THAT(deleted(), ElementsAre("a"));
    EXPECT_FALSE(exists(file("a")));
    EXPECT_THAT(fake::programs(), ElementsAre(kReload));
}

} // namespace
