#include <gmock/gmock.h>

#include "velomondctl/gnuplot.h"
#include "velomondctl/progress.h"
#include "velomondctl/report_page.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

/* Three intervals, the newest first, 40 s missing before the newest. */
constexpr const char *kCpu =
    "system\ncpu0\ntime_stamp(ms), 1000050000, 1000010000, 1000000000\nuser, 90.0, -nan, 10.5\n"
    "idle, 4.0, 5.0, 6.0\n\n"
    "system_all\ntime_stamp(ms), 1000050000, 1000010000, 1000000000\nuser, 90.0, 1.0, 10.5\n"
    "idle, 4.0, 5.0, 6.0\n\n"
    "__daemon_list\nVnvrd\ntime_stamp(ms), 1000050000, 1000010000, 1000000000\n"
    "total, 18446744073709551615.0, 2.0, 0.0\n\n";
constexpr const char *kMemory =
    "system\nmem_total, 4096000\ntime_stamp(ms), 1000050000, 1000010000\nmem_free, 1024, 2048\n\n"
    "__daemon_list\nVnvrd\ntime_stamp(ms), 1000050000, 1000010000\nVmSize, 0, 8000\n"
    "VmRSS, 0, 4096\n\n";

TEST(Dump, IsReadAsItWasWrittenAndBearsAnything)
{
    const std::vector<TDumpEntity> cpu = dump_parse(kCpu);
    EXPECT_THAT(*cpu[0].row("user"), ElementsAre(TFigure(90.0), TFigure(), TFigure(10.5)));
    EXPECT_EQ(cpu[2].row("total")->front(), TFigure());                         // a counter that went backwards
    EXPECT_THAT(dump_parse("eth0\ntime_stamp(ms)\ntx\nrx\n\n"), ElementsAre()); // before the first round
    EXPECT_THAT(dump_parse("\x1b[2J\r\nuser, 1, x, 2"), ElementsAre(testing::Field(&TDumpEntity::name, "?[2J")));
    EXPECT_THAT(*dump_parse("a\nuser, 1, x, 2")[0].row("user"), ElementsAre(TFigure(1.0), TFigure(), TFigure(2.0)));
    std::string many;
    for (int i = 0; i < 5000; ++i)
        many += "a\nb, 1\n";
    EXPECT_EQ(dump_parse(many).size(), 4096U);
    std::string rows = "a\n";
    for (int i = 0; i < 100; ++i)
        rows += std::to_string(i) + std::string(10000, ',') + "\n";
    EXPECT_EQ(dump_parse(rows)[0].rows.size(), 32U);
    EXPECT_EQ(dump_parse(rows)[0].row("1")->size(), 1440U);
}

TEST(Report, ShowsWhatADumpHoldsAndWhatIsOdd)
{
    TDump dump;
    dump.cpu = dump_parse(kCpu);
    dump.mem = dump_parse(kMemory);
    dump.net = dump_parse("eth0\ntime_stamp(ms), 1000050000, 1000010000, 1000000000\ntx, 400000, 10000, 20000\n"
                          "rx, 0, 0, 0\n");
    dump.disk =
        dump_parse("/dev/mapper/cachedev1 253 0\ntime_stamp(ms), 1000050000\nthroughput, 50\nwr_latency, 150.0\n");
    const TReport report = report_of_dump("/d", dump);
    std::vector<std::string> alarms, titles;
    for (const TSpan &one : report.alarms)
        alarms.push_back(one.text);
    for (const TPicture &one : report.pictures)
        titles.push_back(one.title);
    EXPECT_THAT(alarms,
                ElementsAre("no sample for 40 s until 1970-01-12T13:47:30Z", "the CPU is busy for 95.0 % of the time",
                            "Vnvrd ended in this time", "cachedev1 write takes up to 150.0 ms"));
    EXPECT_THAT(report.facts, testing::IsSupersetOf({Pair("cores", "1"), Pair("memory", "4.2 GB"),
                                                     Pair("from", "1970-01-12T13:46:40Z")}));
    ASSERT_THAT(titles,
                ElementsAre("CPU of the machine", "CPU use per core", "CPU of the services", "Memory of the machine",
                            "Memory of the services", "Network", "Cache devices", "Latency of the cache devices"));
    EXPECT_EQ(report.pictures[1].curves[0].points.back().second, 96.0);
    EXPECT_THAT(report.pictures[5].curves[0].points, // bytes of intervals of 10, 10 and 40 s
                ElementsAre(Pair(1000000, 2.0), Pair(1000010, 1.0), Pair(1000050, 10.0)));
    EXPECT_TRUE(report_of_dump("/d", {}).pictures.empty());
}

TEST(Report, DrawsWithGnuplot)
{
    const std::string script = picture_script({"", "", {{"a", {{1, 2.0}, {61, {}}, {121, 3.0}}}}});
    EXPECT_THAT(script, HasSubstr("1 2.000000\n61 none\n"));
    std::string svg;
    const TOutcome outcome = gnuplot_draw(script, std::chrono::seconds(30), &svg);
    ASSERT_TRUE(outcome.ok()) << outcome.text;
    EXPECT_THAT(svg, HasSubstr("</svg>"));
    EXPECT_THAT(svg, HasSubstr(">00:01:00<"));        // seconds, where the axis is short
    EXPECT_THAT(svg, HasSubstr("#gpPt6' transform")); // a lone point, too
    EXPECT_EQ(gnuplot_draw("no such command\n", std::chrono::seconds(30), &svg).fault, TFault::kInternal);
    EXPECT_EQ(gnuplot_draw("pause 20\n", std::chrono::milliseconds(200), &svg).fault, TFault::kTimeout);
}

TEST(Progress, ShowsShareDoneAndTimeLeft)
{
    EXPECT_EQ(progress_text("report", "page", 0, 4, 0), "report: 0 %, page");
    EXPECT_EQ(progress_text("report", "page", 1, 4, 2.5), "report: 25 %, 8 s left, page");
    EXPECT_EQ(progress_text("report", "page", 4, 4, 2.5), "report: 100 %, page");
}

} // namespace
