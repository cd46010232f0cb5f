#include "surveillance/sysstat_camconn.h"

#include <tuple>

#include "platform/time_stamp.h"
#include "surveillance/watcher_test.h"

namespace {

constexpr const char *kInfoPath = "/recStreamService/ChannelConnInfo";
constexpr const char *kInfo = "GET recStreamService:0/recStreamService/ChannelConnInfo 5";
constexpr const char *kStat = "GET recStreamService:0/recStreamService/ChannelConnStat 5";

class SysstatCamconn : public TWatcherTest {
protected:
    ~SysstatCamconn() override { sysstat_camconn_uninit(); }

    static void start(const std::string &info, const std::string &stat)
    {
        fake::g_mono_ms = 0;
        peers(kInfoPath, info, stat);
        sysstat_camconn_init();
        fake::pass_waits(0);
    }
    static std::string asked() // one letter per request
    {
        std::string all;
        for (const fake::TRequest &request : fake::state()->requests)
            all += line_of(request) == kInfo ? "i" : line_of(request) == kStat ? "s" : "?";
        return all;
    }
    static std::string ask(const char *method, const char *count = "")
    {
        json_object *out = nullptr;
        EXPECT_EQ(sysstat_camconn_proc(method, count, &out), 0);
        return json_text(TJson(out).get());
    }
    /* A sample of so many minutes to `end_ms` whose channels 1 to 3 are as given. */
    static std::string sample(const std::string &states, const char *changes, const char *changed, int minutes,
                              const char *end_ms)
    {
        const std::string none(188, '2'), zeros(188, '0');
        return R"({ "cam_stat": "2)" + states + none + R"(", "conf_changed": "0)" + changes + zeros +
               R"(", "changed_flag": )" + changed + R"(, "interval": ")" + std::to_string(60000 * minutes) +
               R"(", "timestamp": ")" + end_ms + R"(" })";
    }
};

TEST_F(SysstatCamconn, ReadsOnceAMinuteAndTheChannelsAgainWhenOneChanged)
{
    start(R"({"data": [{"id": 1, "name": "Old"}, {"id": "2"}, {"id": -5}, 7, null, {"name": "none"}]})",
          R"({"data": [{"id": 1, "conn_failed_count": 50}, {"id": 2, "conn_failed_count": 7}]})");
    EXPECT_EQ(asked(), "i");
    EXPECT_EQ(ask("channel_info"), R"([ { "id": 1, "name": "Old", "guid": "", "umsid": "", "ip": "", "port": "", )"
                                   R"("brand": "", "ums_name": "" } ])");
    fake::pass_waits(1);
    EXPECT_EQ(current_time_stamp_mono_r(), 60000U);
    EXPECT_EQ(asked(), "is");
    EXPECT_EQ(ask("cur_data"), sample("222", "000", "false", 0, "0")); // the first reading only primes

    peers(kInfoPath,
          R"({"data": [{"id": 191, "name": ")" + std::string(200, 'x') +
              R"(", "guid": 7, "umsid": null, "ip": "10.0.0.9", "port": "554", "brand": ["b"], "ums_name": "N"}]})",
          R"({"data": [{"id": 1, "conn_failed_count": 50}, {"id": 2, "conn_failed_count": 9},
                         {"id": 3, "conn_failed_count": 0, "info_changed": true}]})");
    fake::pass_waits(1);
    EXPECT_EQ(asked(), "issi");
    EXPECT_EQ(ask("channel_info"),
              R"([ { "id": 191, "name": ")" + std::string(127, 'x') +
                  R"(", "guid": "", "umsid": "", "ip": "10.0.0.9", "port": "554", "brand": "", "ums_name": "N" } ])");
    EXPECT_EQ(ask("cur_data"), sample("010", "001", "true", 1, "1700000120000"));

    peers(kInfoPath, "", R"({"data": [{"id": 1, "conn_failed_count": 51}, {"id": 3, "info_changed": 1}]})");
    fake::pass_waits(2);
    EXPECT_EQ(ask("cur_data"), sample("022", "000", "false", 1, "1700000240000"));
    EXPECT_EQ(ask("total", "1"), ask("cur_data"));
    EXPECT_EQ(ask("total", "2"), sample("110", "001", "true", 2, "1700000240000"));
    for (const char *count : {"0", "3", "99999999999", "", "abc"})
        EXPECT_EQ(ask("total", count), sample("110", "001", "true", 3, "1700000240000")) << count;
    json_object *out = nullptr;
    EXPECT_EQ(sysstat_camconn_proc("total", "-7", &out), -6);
    EXPECT_EQ(sysstat_camconn_proc("max", "1", &out), -3);
    sysstat_camconn_uninit();
    EXPECT_EQ(sysstat_camconn_proc("total", "1", &out), -2);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(log_text(kLogCamConn),
              "sysstat_camconn.cpp:sysstat_camconn_proc(281) count_val=[-7] invalid."
              "sysstat_camconn.cpp:sysstat_camconn_proc(297) method=[max] not support."
              "sysstat_camconn.cpp:sysstat_camconn_proc(262) g_p_NetstatManager does not exist.");
    start("", ""); // without an answer
    EXPECT_EQ(ask("channel_info"), "[ ]");
}

TEST_F(SysstatCamconn, ABadAnswerIsLoggedAndChangesNothing)
{
    const char *const kGood = R"({"data": [{"id": 1, "conn_failed_count": 1}]})";
    start(kGood, kGood);
    fake::pass_waits(2);
    EXPECT_EQ(sysstat_caminfo_get(), 0);
    const std::string before = ask("channel_info") + ask("total", "0");
    const std::tuple<long long, const char *, int, const char *> cases[] = {
        // result of the request, answer, result, log
        {-1, kGood, -1, "(131) ssci_GET_request failed (ffffffffffffffff)"},
        {0, "", -2, "(138) json_tokener_parse failed[]"},
        {0, "{\"data\": [", -2, "(138) json_tokener_parse failed[{\"data\": []"},
        {0, "[]", -3, "(145) p_datas not found"},
        {0, R"({"data": null})", -3, "(145) p_datas not found"}};
    std::string log;
    for (const auto &[request, answer, result, logged] : cases) {
        peers(kInfoPath, answer, answer, request, request);
        EXPECT_EQ(sysstat_caminfo_get(), result) << answer;
        fake::pass_waits(1);
        for (const char *caller : {"sysstat_caminfo_get", "sysstat_camconn_get"})
            log += std::string("sysstat_camconn.cpp:") + caller + logged;
    }
    EXPECT_EQ(log_text(kLogCamConn), log);
    EXPECT_EQ(ask("channel_info") + ask("total", "0"), before);
    EXPECT_NE(sysstat_camconn_proc("a\nb", "", nullptr), 0);
    EXPECT_THAT(log_text(kLogCamConn), testing::EndsWith("sysstat_camconn_proc(297) method=[a\\x0ab] not support."));
}

} // namespace
