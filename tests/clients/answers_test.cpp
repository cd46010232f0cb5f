#include "query_api/answers.h"

#include <gmock/gmock.h>

namespace {

std::string enveloped(const std::string &data)
{
    return R"({ "return": 0, "data": )" + data + " }";
}

TEST(Answers, FiguresAreNumbersOrMissing)
{
    TFigures figures;
    const auto take = [&figures](TKind kind, const char *data) {
        return answer_figures(enveloped(data), kind, true, &figures);
    };
    ASSERT_TRUE(take(TKind::kCpuService, R"({ "total_pcnt": "15.0", "user_pcnt": "-nan", "sys_pcnt": "nan" })").ok());
    EXPECT_EQ(take(TKind::kNetwork, R"({ "tx": "1" })").text, R"(invalid answer: "rx" is missing or invalid)");
    EXPECT_EQ(figures.get("total_pcnt"), 15.0); // what was there is still there
    for (const char *missing : {"user_pcnt", "sys_pcnt", "no such"})
        EXPECT_EQ(figures.get(missing), std::nullopt);

    /* A counter that went backwards, and a minimum of nothing. */
    ASSERT_TRUE(take(TKind::kNetwork, R"({ "tx": "18446744073709551615", "rx": "20496382304121723" })").ok());
    EXPECT_EQ(figures.get("tx"), std::nullopt);
    EXPECT_EQ(figures.get("rx"), std::nullopt);
}

TEST(Answers, ASeriesHasAsManyPointsInEachRow)
{
    TSeries series;
    ASSERT_TRUE(
        answer_series(enveloped(R"({ "tx": [ "6188", "6215" ], "rx": [ "1", "2" ] })"), TKind::kNetwork, &series).ok());
    EXPECT_EQ(series.get("rx")->at(1), 2.0);
    for (const char *data : {R"({ "tx": [ "1", "2" ], "rx": [ "1" ] })", R"({ "tx": [ "1" ], "rx": [ 1 ] })",
                             R"({ "tx": [ "1" ], "rx": [ null ] })", R"({ "tx": [ "1" ], "rx": "1" })"})
        EXPECT_EQ(answer_series(enveloped(data), TKind::kNetwork, &series).fault, TFault::kInvalid) << data;
    std::string many = R"("0")";
    for (int i = 0; i < 15; ++i)
        many += R"(, "0")";
    const std::string data = R"({ "tx": [ )" + many + R"( ], "rx": [ )" + many + " ] }";
    EXPECT_EQ(answer_series(enveloped(data), TKind::kNetwork, &series).fault, TFault::kInvalid);
}

TEST(Answers, CamerasAndChannelsAreWithinBounds)
{
    const auto sample = [](const std::string &states, const std::string &rest) {
        return enveloped(R"({ "cam_stat": ")" + states + R"(", "conf_changed": ")" + std::string(192, '0') + R"(", )" +
                         rest + " }");
    };
    const std::string states = "01" + std::string(190, '2');
    constexpr const char *kTimes = R"("interval": "60020", "timestamp": "1795393893041")";
    TCameraStat stat;
    ASSERT_TRUE(answer_cameras(sample(states, kTimes), &stat).ok());
    EXPECT_EQ(stat.time_ms, 1795393893041);
    for (const auto &[text, times] : {std::pair(states + "2", kTimes),
                                      {states.substr(1), kTimes},
                                      {"3" + states.substr(1), kTimes},
                                      {states, R"("interval": "-1", "timestamp": "0")"},
                                      {states, R"("interval": "1x", "timestamp": "0")"}})
        EXPECT_EQ(answer_cameras(sample(text, times), &stat).fault, TFault::kInvalid) << text << times;

    const auto channel = [](const std::string &id) {
        return R"({ "name": "", "guid": "", "umsid": "", "ip": "", "port": "", "brand": "", "ums_name": "", "id": )" +
               id + " }";
    };
    std::vector<TChannel> channels;
    ASSERT_TRUE(answer_channels(enveloped("[" + channel("0") + "," + channel("191") + "]"), &channels).ok());
    EXPECT_EQ(channels[1].id, 191U);
    for (const std::string &list : {channel("192"), channel("-1"), channel("1") + "," + channel("1"),
                                    channel("18446744073709551617"), std::string("7"), channel("\"1\"")})
        EXPECT_EQ(answer_channels(enveloped("[" + list + "]"), &channels).fault, TFault::kInvalid) << list;
}

TEST(Answers, ABrokenOneIsLoggedInOneLineAndLeavesTheResultAlone)
{
    std::string words = "before";
    for (const char *text :
         {"", "\x01\xff\x80 what", R"({ "return": 0, "data": { "sys_he)",
          R"({ "return": 0, "data": { "sys_health": "good" } } { })", "[ ]", R"({ "data": { "sys_health": "good" } })",
          R"({ "return": "0", "data": { "sys_health": "good" } })", R"({ "return": 0 })",
          R"({ "return": 0, "data": [ "good" ] })", R"({ "return": 0, "data": { "sys_health": { } } })",
          "{\"a\":[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]}"}) {
        const TOutcome outcome = answer_hardware(text, &words);
        EXPECT_EQ(outcome.fault, TFault::kInvalid) << text;
        EXPECT_EQ(outcome.text.find('\n'), std::string::npos);
    }
    EXPECT_EQ(answer_hardware(R"({ "return": -3 })", &words).fault, TFault::kRefused);
    EXPECT_EQ(words, "before");
}

TEST(Answers, StatesAreOneOfTheirWords)
{
    TStateAt state;
    ASSERT_TRUE(answer_disks(enveloped(R"({ "utc_time": "1795393352", "disk_update": "hour_warning" })"), &state).ok());
    EXPECT_EQ(state, (TStateAt{"hour_warning", 1795393352}));
    ASSERT_TRUE(answer_recording(R"({ "utc_time": 0, "camera_recording_update": "error" })", &state).ok());
    EXPECT_EQ(state, (TStateAt{"error", 0}));
    for (const char *data : {R"({ "utc_time": "1", "fan_update": "\u001b[2J" })", R"({ "utc_time": "1" })",
                             R"({ "utc_time": "", "fan_update": "normal" })", R"({ "fan_update": "normal" })"})
        EXPECT_EQ(answer_fans(enveloped(data), &state).fault, TFault::kInvalid) << data;
}

} // namespace
