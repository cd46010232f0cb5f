#include <gmock/gmock.h>

#include "clients/figures.h"
#include "query_api/clean_text.h"
#include "velomondctl/check.h"
#include "velomondctl/output.h"
#include "velomondctl/status.h"
#include "velomondctl/top_frame.h"
#include "velomondctl/watch.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/* A recorder with one camera connected and one not, a slow device, half its memory used. */
TSnapshot recorder()
{
    TSnapshot now;
    now.disks = {"normal", 1795393352};
    now.fans = {"normal", 1795393352};
    now.recording = {"normal", 1795393352};
    now.cameras.state[0] = TCamera::kConnected;
    now.cameras.state[4] = TCamera::kFailed;
    now.channels = {{0, "Gate", "", "", "", "", "", ""}, {4, "Yard", "", "", "", "", "", ""}};
    now.cpu = figures(TKind::kCpu, {15, 5, 0, 0, 80});
    now.cores = {{"cpu0", now.cpu}};
    now.memory = figures(TKind::kMemory, {1000, 500, 300, 500, 100, 100, 0, 200, 150});
    now.devices = {{"/dev/mapper/cachedev1", figures(TKind::kDisk, {10, 2, 31.5, 1, 1})}};
    const auto service = [](const char *name, TFigure cpu, double resident) {
        return TSnapshot::TService{name, figures(TKind::kCpuService, {cpu, cpu, 0.0}),
                                   figures(TKind::kMemoryService, {resident, resident, 0, 0})};
    };
    now.services = {service("Vnvrd", 1, 50), service("VdbService", 0, 0), service("VeloMond", 7, 9)};
    return now;
}

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
    for (const char *text : {"", "20:10", "1x", "@", "nan"})
        EXPECT_FALSE(alert_range_parse(text, &range)) << text;
    TRanges ranges;
    EXPECT_FALSE(check_range_add("cpux=1", &ranges));
    EXPECT_FALSE(check_range_add("cpu", &ranges));
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
    EXPECT_THAT(watch_changes(usual, now), ElementsAre());
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
    EXPECT_THAT(json, HasSubstr(R"("load": 12.25)"));
    EXPECT_THAT(json, HasSubstr(R"("size": 23001240)"));
    EXPECT_THAT(json, HasSubstr(R"("load": null)"));
    EXPECT_THAT(json, HasSubstr(R"("on": true)"));
    EXPECT_EQ(size_text(999.4), "999 B");
    EXPECT_EQ(size_text(999.6), "1.0 kB");
    EXPECT_EQ(size_text(1234567.0), "1.2 MB");
    EXPECT_EQ(size_text({}), "-");
}

TEST(Status, ShowsTheBusiestFirstAndColoursWhereAsked)
{
    const TSnapshot now = recorder();
    const std::string plain = status_text(now, {{1, "System", "/share/System", true, 1000, 30}}, false);
    EXPECT_THAT(plain, HasSubstr("1 connected, 1 failed: Yard"));
    EXPECT_THAT(plain, HasSubstr("20.0 % of 1 cores"));
    EXPECT_THAT(plain, HasSubstr("System: 97.0 % of 1.0 kB"));
    EXPECT_THAT(plain, HasSubstr("2 of 3 running"));
    EXPECT_LT(plain.find("VeloMond "), plain.find("Vnvrd "));
    EXPECT_EQ(plain.find('\033'), std::string::npos);
    EXPECT_THAT(status_text(now, {}, true), HasSubstr("\033[32mnormal\033[0m"));
}

TEST(Volumes, AreTheSectionsWithAMountPoint)
{
    std::string found;
    for (const TVolume &one : volumes_parse("[VOL_2]\nvolName = B\nmountPoint = /b\n[VOL_1]\nmountPoint=/a\n"
                                            "[VOL_x]\nmountPoint=/x\n[VOL_3]\nvolName = no\n[VOL_4]\n"
                                            "mountPoint = relative\nbroken line\n"))
        found += one.name + " " + one.mount_point + "\n";
    EXPECT_EQ(found, " /a\nB /b\n");
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
    const auto text = [&data](TTopSort sort) {
        std::string all;
        for (const std::string &line : shown(data, {sort, false, false, 80, 24}))
            all += line + "\n";
        return all;
    };
    const std::string by_cpu = text(TTopSort::kCpu);
    EXPECT_THAT(by_cpu, HasSubstr("no camera is recorded  camera Yard not connected  camera channel 191"));
    EXPECT_THAT(by_cpu, HasSubstr("cameras  o...X....."));
    EXPECT_THAT(by_cpu, HasSubstr("more"));
    EXPECT_LT(by_cpu.find("20 "), by_cpu.find("19 "));
    EXPECT_THAT(text(TTopSort::kMemory), HasSubstr("\u524d0 "));
    data.fault = "nothing answers";
    EXPECT_THAT(text(TTopSort::kMemory), HasSubstr("nothing answers  no camera is recorded"));
}

} // namespace
