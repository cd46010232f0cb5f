#include <gmock/gmock.h>

#include "clients/snapshot.h"
#include "query_api/clean_text.h"
#include "velomondctl/check.h"
#include "velomondctl/output.h"
#include "velomondctl/status.h"
#include "velomondctl/top_frame.h"
#include "velomondctl/watch.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

TEST(AlertRange, IsReadAsPlugInsWriteIt)
{
    TAlertRange range;
    for (const auto &[text, alerting] : {std::pair("10", "-1e9 -1 10.1 20 21 "),
                                         {"10:", "-1e9 -1 0 9 "},
                                         {"~:10", "10.1 20 21 "},
                                         {"10:20", "-1e9 -1 0 9 21 "},
                                         {"@10:20", "10 10.1 20 "}}) {
        ASSERT_TRUE(alert_range_parse(text, &range)) << text;
        std::string alerts;
        for (const char *value : {"-1e9", "-1", "0", "9", "10", "10.1", "20", "21"})
            alerts += range.alerts(std::stod(value)) ? std::string(value) + " " : "";
        EXPECT_EQ(alerts, alerting) << text;
    }
    TRanges ranges;
    for (const char *text : {"cpu=", "cpu=20:10", "cpu=1x", "cpu=@", "cpu=nan", "cpux=1", "cpu"})
        EXPECT_FALSE(check_range_add(text, &ranges)) << text;
}

TEST(Check, TheWorstDecidesAndTheMissingIsUnknown)
{
    using enum TLevel;
    const TSnapshot now = recorder();
    for (const auto &[warnings, criticals, level, words] :
         {std::tuple("cpu=50", "cpu=90", kOk, "cpu=20%;50;90"),
          {"cameras=0", "cpu=90", kWarning, "WARNING - 1 camera failed |"},
          {"cameras=0", "latency=30", kCritical, "1 camera failed, latency 31.5 ms |"},
          {"memory=49", "memory=50", kWarning, "memory 50 %"},
          {"swap=24", "swap=30", kWarning, "swap 25 %"},
          {"volumes=90", "disks=2", kUnknown, "fullest volume unknown"},
          {"volumes=90", "cameras=0", kCritical, "CRITICAL"}}) {
        TRanges warn, crit;
        ASSERT_TRUE(check_range_add(warnings, &warn) && check_range_add(criticals, &crit));
        const TCheckResult result = check_decide(now, check_values(now, {}), warn, crit);
        EXPECT_EQ(result.level, level) << result.line;
        EXPECT_THAT(result.line, HasSubstr(words));
    }
    const TVolume full{1, "a", "/a", true, 100, 10}, gone{2, "b", "/b", false, 0, 0};
    EXPECT_EQ(check_values(now, {full})["volumes"], 90.0);
    EXPECT_EQ(check_values(now, {full, gone})["volumes"], 100.0);
}

TEST(Watch, ReportsDifferences)
{
    const TLook usual{recorder(), ""};
    TLook now = usual;
    now.states.recording.state = "error";
    now.states.disks.utc_s += 60; // reported again, the same
    now.states.cameras.state[0] = TCamera::kFailed;
    now.states.cameras.state[7] = TCamera::kConnected;
    EXPECT_THAT(watch_changes(usual, now),
                ElementsAre("recording: normal -> error", "camera 0 (Gate): connected -> failed",
                            "camera 7 (channel 7): absent -> connected"));
    const TLook silent{{}, "nothing answers"};
    EXPECT_THAT(watch_changes(usual, silent), ElementsAre("monitor: nothing answers"));
    EXPECT_THAT(watch_changes(silent, {{}, "another reason"}), ElementsAre());
    EXPECT_THAT(watch_changes(silent, usual), ElementsAre("monitor: answers again", "disks: normal", "fans: normal",
                                                          "recording: normal", "cameras: 1 connected, 1 failed"));
}

TEST(Output, HasThreeForms)
{
    const TTable table{{{"name", "NAME", ""}, {"load", "LOAD", "%"}, {"size", "SIZE", "kB"}, {"on", "ON", ""}},
                       {{std::string("a,\"b\""), 12.25, 100.0, true},
                        {std::string("\xe5\x89\x8d"), std::monostate(), 23001240.0, false}}};
    EXPECT_EQ(table_text(table, TFormat::kTable), "NAME   LOAD(%)  SIZE(kB)  ON\n"
                                                  "a,\"b\"     12.2       100  yes\n"
                                                  "\xe5\x89\x8d           -  23001240  no\n");
    EXPECT_EQ(table_text(table, TFormat::kCsv),
              "name,load,size,on\n\"a,\"\"b\"\"\",12.25,100,1\n\xe5\x89\x8d,,23001240,0\n");
    const std::string json = table_text(table, TFormat::kJson);
    for (const char *member : {R"("load": 12.25)", R"("load": null)", R"("size": 23001240)", R"("on": true)"})
        EXPECT_THAT(json, HasSubstr(member));
    for (const auto &[bytes, text] :
         {std::pair<TFigure, const char *>(999.4, "999 B"), {999.6, "1.0 kB"}, {1234567.0, "1.2 MB"}, {{}, "-"}})
        EXPECT_EQ(size_text(bytes), text);
}

TEST(Status, NamesFailedCamerasAndShowsTheBusiestFirst)
{
    const std::string text = status_text(recorder(), {}, true);
    EXPECT_THAT(text, HasSubstr("\033[32mnormal\033[0m"));
    EXPECT_THAT(text, HasSubstr("1 connected, \033[1;31m1 failed\033[0m: Yard\n"));
    EXPECT_THAT(text, testing::EndsWith("SERVICE   CPU(%)  RESIDENT(kB)\n"
                                        "VeloMond     7.0             4\n"
                                        "Vnvrd        1.0            50\n"));
}

TEST(Volumes, AreTheSectionsWithAMountPoint)
{
    using testing::FieldsAre;
    EXPECT_THAT(volumes_parse("[VOL_2]\nvolName = B\nmountPoint = /b\n[VOL_1]\nmountPoint=/a\n[VOL_x]\nmountPoint=/x\n"
                              "[VOL_3]\nvolName = no\n[VOL_4]\nmountPoint = relative\nbroken line\n"),
                ElementsAre(FieldsAre(1, "", "/a", false, 0, 0), FieldsAre(2, "B", "/b", false, 0, 0)));
}

TEST(Sparkline, HasTheOldestFirst)
{
    EXPECT_EQ(sparkline({100.0, 50.0, {}, 0.0}, 100, 5, false), " _ =#");
    EXPECT_EQ(sparkline({4.0, 1.0}, 0, 2, true), "\u2583\u2588");
    EXPECT_EQ(sparkline({0.0, 0.0}, 0, 2, false), "__");
    EXPECT_EQ(sparkline({300.0}, 100, 1, false), "#"); // three cores busy
}

std::vector<std::string> shown(const TTopData &data, const TTopView &view)
{
    std::vector<std::string> lines;
    for (const TTopLine &line : top_frame(data, view)) {
        lines.emplace_back();
        for (const TSpan &span : line)
            lines.back() += span.text;
    }
    return lines;
}

TTopData top_data()
{
    TTopData data;
    data.now = recorder();
    data.utc_s = 1795393352;
    for (int i = 0; i < 12; ++i)
        data.machine.push_back({"cpu" + std::to_string(i), {1.0, 2.0}, "1.0 %", 100});
    data.traffic = {{std::string(100, 'w'), {1.0}, "1 B/s", 0}};
    for (int i = 0; i < 21; ++i)
        data.services.push_back({"V\u524d" + std::to_string(i), 1.0 * i, 100.0 - i, {}, {}});
    data.now.cameras.state[191] = TCamera::kFailed;
    return data;
}

TEST(TopFrame, FitsAnySize)
{
    for (const TTopData &data : {top_data(), TTopData{}}) {
        for (const auto &[columns, lines] : {std::pair<size_t, size_t>(80, 24), {200, 60}, {40, 10}, {1, 1}, {20, 3}}) {
            for (const bool help : {false, true}) {
                const std::vector<std::string> frame = shown(data, {TTopSort::kCpu, help, true, columns, lines});
                ASSERT_EQ(frame.size(), lines);
                for (const std::string &line : frame)
                    EXPECT_LE(text_columns(line), columns) << line;
            }
        }
    }
}

TEST(TopFrame, ShowsAlarmsCamerasAndTheServicesInOrder)
{
    TTopData data = top_data();
    data.now.recording.state = "error";
    const std::vector<std::string> by_cpu = shown(data, {TTopSort::kCpu, false, false, 80, 24});
    EXPECT_THAT(by_cpu, IsSupersetOf({HasSubstr("no camera is recorded  camera Yard not connected  camera channel 191"),
                                      HasSubstr("cameras  o...X....."), HasSubstr("more")}));
    EXPECT_THAT(by_cpu[19], HasSubstr("\u524d20 "));
    EXPECT_THAT(by_cpu[20], HasSubstr("\u524d19 "));
    data.fault = "nothing answers";
    EXPECT_THAT(shown(data, {TTopSort::kMemory, false, false, 80, 24}),
                IsSupersetOf({HasSubstr("\u524d0 "), HasSubstr("nothing answers  no camera is recorded")}));
}

} // namespace
