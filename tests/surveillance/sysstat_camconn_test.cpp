#include "surveillance/sysstat_camconn.h"

#include "surveillance/watcher_test.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr const char *kInfo = "GET recStreamService:0/recStreamService/ChannelConnInfo 5";
constexpr const char *kStat = "GET recStreamService:0/recStreamService/ChannelConnStat 5";

class SysstatCamconn : public TWatcherTest {
protected:
    SysstatCamconn() : TWatcherTest(sysstat_camconn_uninit) {}

    static void service(const std::string &info, const std::string &stat, long long result = 0)
    {
        peers("/recStreamService/ChannelConnInfo", info, stat, result, result);
    }
    static void start(const std::string &info, const std::string &stat)
    {
        fake::set_mono_ms(0);
        service(info, stat);
        sysstat_camconn_init();
        fake::pass_waits(0);
    }
    static std::vector<std::string> asked()
    {
        std::vector<std::string> all;
        for (const fake::T_REQUEST &request : fake::requests())
            all.push_back(line_of(request));
        return all;
    }
    static std::string ask(const char *method, const char *count = "", int expected = 0)
    {
        json_object *out = nullptr;
        EXPECT_EQ(sysstat_camconn_proc(method, count, &out), expected);
        const TJson owner(out);
        return out != nullptr ? json_text(out) : "none";
    }
    /* A sample whose channels 1, 2 and 3 are as given; the others gave no reading. */
    static std::string sample(const std::string &states, const std::string &changes, bool changed, int minutes,
                              const std::string &timestamp)
    {
        return R"({ "cam_stat": "2)" + states + std::string(188, '2') + R"(", "conf_changed": "0)" + changes +
               std::string(188, '0') + R"(", "changed_flag": )" + (changed ? "true" : "false") + R"(, "interval": ")" +
               std::to_string(60000 * minutes) + R"(", "timestamp": ")" + timestamp + R"(" })";
    }
};

TEST_F(SysstatCamconn, ReadsOnceAMinuteAndTheChannelsAgainWhenOneChanged)
{
    start(R"({"data": []})", R"({"data": [{"id": 1, "conn_failed_count": 50}, {"id": 2, "conn_failed_count": 7}]})");
    EXPECT_THAT(fake::service_calls(), ElementsAre("nameserver localhost 10182"));
    EXPECT_EQ(ask("channel_info"), "[ ]");
    fake::pass_waits(59);
    EXPECT_THAT(asked(), ElementsAre(kInfo));
    fake::pass_waits(1);
    EXPECT_THAT(asked(), ElementsAre(kInfo, kStat));
    EXPECT_EQ(ask("cur_data"), sample("222", "000", false, 0, "0")); // the first reading only primes

    service(R"({"data": [{"id": 3, "name": "Gate"}]})",
            R"({"data": [{"id": 1, "conn_failed_count": 50}, {"id": 2, "conn_failed_count": 9},
                         {"id": 3, "conn_failed_count": 0, "info_changed": true}]})");
    fake::pass_waits(60);
    EXPECT_THAT(asked(), ElementsAre(kInfo, kStat, kStat, kInfo));
    EXPECT_EQ(ask("channel_info"),
              R"([ { "id": 3, "name": "Gate", "guid": "", "umsid": "", "ip": "", "port": "", "brand": "", )"
              R"("ums_name": "" } ])");
    EXPECT_EQ(ask("cur_data"), sample("010", "001", true, 1, "1700000120000"));

    service("", R"({"data": [{"id": 1, "conn_failed_count": 51}, {"id": 3, "info_changed": 1}]})");
    fake::pass_waits(120);
    EXPECT_EQ(ask("cur_data"), sample("022", "000", false, 1, "1700000240000"));
    EXPECT_EQ(ask("total", "2"), sample("110", "001", true, 2, "1700000240000"));
    for (const char *count : {"0", "3", "99999999999", "", "abc"})
        EXPECT_EQ(ask("total", count), sample("110", "001", true, 3, "1700000240000")) << count;
}

TEST_F(SysstatCamconn, TheIdentitiesAreRebuiltWhole)
{
    const std::string longer(200, 'x');
    start(R"({"data": [{"id": 1, "name": "Old"}, {"id": "2"}, {"id": -5}, 7, null, {"name": "none"}]})", "");
    EXPECT_THAT(ask("channel_info"), MatchesRegex(R"(\[ . "id": 1, "name": "Old", [^{]* \])"));
    service(R"({"data": [{"id": 191, "name": ")" + longer + R"(", "guid": 7, "umsid": null, "ip": "10.0.0.9",
                          "port": "554", "brand": ["b"], "ums_name": "N"}]})",
            "");
    EXPECT_EQ(sysstat_caminfo_get(), 0);
    EXPECT_EQ(ask("channel_info"), R"([ { "id": 191, "name": ")" + longer.substr(0, 127) +
                                       R"(", "guid": "", "umsid": "", "ip": "10.0.0.9", "port": "554", )"
                                       R"("brand": "", "ums_name": "N" } ])");
}

TEST_F(SysstatCamconn, ABadAnswerIsLoggedAndChangesNothing)
{
    const char *const kGood = R"({"data": [{"id": 1, "conn_failed_count": 1}]})";
    start(kGood, kGood);
    fake::pass_waits(120);
    const std::string before = ask("channel_info") + ask("total", "0");
    const struct {
        long long request;
        const char *answer;
        int result;
        const char *logged; // as a pattern
    } cases[] = {
        {2, kGood, -1, R"( ssci_GET_request failed \(00000002\))"},
        {-1, kGood, -1, R"( ssci_GET_request failed \(ffffffffffffffff\))"},
        {0, "", -2, R"( json_tokener_parse failed\[\])"},
        {0, "<html>", -2, R"( json_tokener_parse failed\[<html>\])"},
        {0, "{\"data\": [", -2, R"( json_tokener_parse failed\[.*\])"},
        {0, "[]", -3, " p_datas not found"},
        {0, R"({"data": {}})", -3, " p_datas not found"},
        {0, R"({"data": "[]"})", -3, " p_datas not found"},
        {0, R"({"data": null})", -3, " p_datas not found"},
    };
    size_t seen = 0;
    for (const auto &one : cases) {
        service(one.answer, one.answer, one.request);
        EXPECT_EQ(sysstat_caminfo_get(), one.result) << one.answer;
        fake::pass_waits(60);
        const std::string log = log_text(kLogCamConn);
        EXPECT_THAT(log.substr(seen),
                    MatchesRegex(std::string(R"(sysstat_camconn.cpp:sysstat_caminfo_get\([0-9]+\))") + one.logged +
                                 R"(sysstat_camconn.cpp:sysstat_camconn_get\([0-9]+\))" + one.logged));
        seen = log.size();
    }
    EXPECT_EQ(ask("channel_info") + ask("total", "0"), before);
}

TEST_F(SysstatCamconn, RefusalsAreLoggedUnderTheirCodes)
{
    fake::state()->nameserver_result = 0x1234;
    start("{}", "");
    EXPECT_EQ(ask("total", "-1", -6), "none");
    EXPECT_EQ(ask("avg", "0", -3), "none");
    sysstat_camconn_uninit();
    EXPECT_EQ(ask("cur_data", "", -2), "none");
    const std::string proc = R"(sysstat_camconn.cpp:sysstat_camconn_proc\([0-9]+\) )";
    EXPECT_THAT(log_text(kLogCamConn),
                MatchesRegex(R"(.*sysstat_camconn_init\([0-9]+\) ssci_nameserver_init )"
                             R"(ret=\[00001234\].* p_datas not found)" +
                             proc + R"(count_val=\[-1\] invalid\.)" + proc + R"(method=\[avg\] not support\.)" + proc +
                             "g_p_NetstatManager does not exist\\."));
}

} // namespace
