#include "stats/sysstat_disk.h"

#include <cmath>
#include <filesystem>

#include "platform/host_path.h"
#include "stats/stat_test.h"

namespace {

using fake::state;

constexpr const char *kDevice = "/dev/mapper/cachedev1";
constexpr const char *kDiskstats = "/proc/diskstats";

/* Two cache devices, for which devices that every machine has (1:3 and 1:5) stand
 * in, and what must not be taken for one. */
int init()
{
    const std::string folder = host_path("/dev/mapper/");
    std::filesystem::create_directories(folder + "vg-root");
    std::filesystem::create_symlink("/dev/null", folder + "cachedev1");
    std::filesystem::create_symlink("/dev/zero", folder + "vg1-text_name_of_a_cachedev");
    std::filesystem::create_symlink("/nowhere", folder + "cachedev9");
    return sysstat_disk_init();
}

class DiskStat : public TStatTest<init, sysstat_disk_uninit, sysstat_disk_sample, sysstat_disk_proc> {};

TEST_F(DiskStat, AnswersAmountsAndAmountsPerSecondAndDumpsNewestFirst)
{
    round(kDiskstats, "   1       3 dm-0 100 5 800 400 10 6 90 30 0 7 1000\n"
                      "   1       5 dm-1 1 0 1 1 1 0 1 1 0 1 1 9 9 9 9 9 9\n");
    round(kDiskstats, "   8       0 sda 1 1 1 1 1 1 1 1 1 1 1\n"
                      "   1       3 dm-0 104 5 1000 410 10 6 90 30 0 7 3500\n"
                      "   1       5 dm-1 1 0 1 1 1 0 1 1 0 1\n"); // a column short: no reading of this one
    round(kDiskstats, "   1       3 dm-0 110 5 1101 420 20 6 190 20030 0 7 3500\n"
                      "   1       5 dm-1 1 0 1 1 1 0 1 1 0 1 1\n");
    const TStatAnswer cases[] = {
        {"cur_data", "x", kDevice, "100 1.7 2000.0 6 10"},
        {"total", "0", kDevice, "200 10 10"},
        {"avg", "", kDevice, "10.0 2.0 2000.0 0.5 0.5"},
        {"line_data", "-1", kDevice, R"([ "10.0" ] [ "2.0" ] [ "2000.0" ] [ "0.5" ] [ "0.5" ])"},
        {"line_data", "", "/dev/mapper/cachedev2", "[ ] [ ] [ ] [ ] [ ]"},
    };
    for (const auto &[method, type, name, values] : cases)
        EXPECT_EQ(ask(method, type, name), values) << method << type << name;
    write_file("/out/keep", "");
    EXPECT_EQ(told_by([] { sysstat_disk_dump("/out"); }),
              "sysstat_disk.cpp:sysstat_disk_dump(583) str_stats_folder=[/out]\n");
    EXPECT_EQ(read_file("/out/disk_stats.csv"),
              "/dev/mapper/cachedev1 1 3\ntime_stamp(ms), 1030000, 1020000\nthroughput, 100.0, 100.0\n"
              "rd_latency, 1.7, 2.5\nwr_latency, 2000.0, 0.0\nrd_io, 6.0, 4.0\nwr_io, 10.0, 0.0\npctutil, 20.0, 0.0\n\n"
              "/dev/mapper/vg1-text_name_of_a_\ntime_stamp(ms), 1030000\nthroughput, 0.0\n"
              "rd_latency, 0.0\nwr_latency, 0.0\nrd_io, 0.0\nwr_io, 0.0\npctutil, 0.0\n\n");
}

TEST_F(DiskStat, RatesOfNoTimeAreTheAmountsAndCountersWrap)
{
    round(kDiskstats, "1 3 dm-0 5 5 5 5 5 5 5 5 5 5 5\n");
    round(kDiskstats, "1 3 dm-0 15 5 45 45 10 5 25 45 5 5 0\n", 0);
    EXPECT_EQ(ask("avg", "1", kDevice), "30.0 4.0 8.0 10.0 5.0");
    EXPECT_EQ(ask("line_data", "", kDevice), R"([ "30.0" ] [ "4.0" ] [ "8.0" ] [ "10.0" ] [ "5.0" ])");
    EXPECT_EQ(g_p_DiskstatManager->get_current("/dev/mapper/cachedev1 1 3").rq_ticks, UINT32_MAX - 4);
    round(kDiskstats, std::string(255, 'x') + "1 3 dm-0 14 5 43 45 10 5 25 45 5 5 0\n"); // what follows 255 is a line
    EXPECT_EQ(ask("cur_data", "", kDevice), "9223372036854775808 0.0 0.0 18446744073709551616 0"); // one back
}

TEST_F(DiskStat, OfTwoNamesTheFirstInTheListingHasTheDevice)
{
    sysstat_disk_uninit();
    for (const char *name : {"cachedev2", "cachedev3", "cachedev4"})
        std::filesystem::create_symlink("/dev/null", root() + "/dev/mapper/" + name);
    sysstat_disk_init();
    for (int i = 0; i < 2; ++i)
        round(kDiskstats, "1 3 dm-0 5 5 5 5 5 5 5 5 5 5 5\n");
    std::string intervals;
    for (const auto &entry : std::filesystem::directory_iterator(root() + "/dev/mapper")) {
        const std::string key = "/dev/mapper/" + entry.path().filename().string() + " 1 3";
        if (const auto history = g_p_DiskstatManager->copy_history(key))
            intervals += std::to_string(history->size());
    }
    EXPECT_EQ(intervals, "1000");
}

TEST_F(DiskStat, MethodsWithoutAnObjectAndRefusalsInTheirOrder)
{
    EXPECT_EQ(refusal("other", "-1", kDevice, -3), "str_key=[/dev/mapper/cachedev1 1 3]\nmethod=[other] not support\n");
    EXPECT_EQ(refusal("notify", "", "any", -2), "str_key=[]\n"); // no disk list
    EXPECT_EQ(refusal("get_disk_flag", "", "any", 0), "str_key=[]\n");
    EXPECT_EQ(state()->shm_sets, 2); // at start and on request
    EXPECT_EQ(state()->shm_gets, 3);
}

TEST_F(DiskStat, PrintsTheFirstDevice)
{
    for (int i = 0; i < 13; ++i)
        round(kDiskstats, "1 3 dm-0 " + std::to_string(i) + " 0 2 3 4 0 5 6 0 0 " + std::to_string(100 * i) + "\n");
    const std::string rest = "    rd_sec  =0\n    rd_ticks=0\n    wr_ios  =0\n    wr_sec  =0\n    wr_ticks=0\n";
    EXPECT_EQ(told_by([] { sysstat_disk_print(); }),
              "get_total 15min\n    rd_ios  =12\n" + rest +
                  "    rq_ticks=1200\n    inv_ms  =120000\n    tp_ms   =0\nget_total 10sec\n    rd_ios  =10\n" + rest +
                  "    rq_ticks=1000\n    inv_ms  =100000\n    tp_ms   =0\n");
}

TEST_F(DiskStat, RunsOnWithoutMapperAndWithoutDiskstats)
{
    EXPECT_EQ(sysstat_disk_sample(), -1);
    sysstat_disk_uninit();
    std::filesystem::remove_all(root() + "/dev");
    EXPECT_TRUE(told_by(sysstat_disk_init).ends_with("\nCannot open /dev/mapper: No such file or directory\n"));
    round(kDiskstats, "1 3 dm-0 1 1 1 1 1 1 1 1 1 1 1\n");
}

TEST(DiskLine, FourteenColumnsOrNothing)
{
    for (const char *text :
         {"253 0 dm-0 1 2 3 4 5 6 7 8 9 10", "253 0 1 2 3 4 5 6 7 8 9 10 11", "253 0", "\n",
          "253 0 dm-0 1 2 x 4 5 6 7 8 9 10 11", "x 0 dm-0 1 2 3 4 5 6 7 8 9 10 11", "x 1 2 3 4 5 6 7 8 9 10 11"})
        EXPECT_FALSE(disk_line_parse(text)) << text;
    const auto parsed =
        disk_line_parse("1 3 d 99999999999999999999 2 3 4 5 6 7 18446744073709551615 9 10 4294967297 12");
    EXPECT_EQ(parsed->stat.rd_ios, UINT64_MAX);
    EXPECT_EQ(parsed->stat.rq_ticks, 1U);
}

TEST(DiskMetrics, HaveTheScaleAndTheCapThatReadersKnow)
{
    const auto pctutil = [](uint64_t rd_ticks, uint64_t wr_ticks, int64_t inv_ms, long ticks_per_s) {
        const T_DISK_STAT sum{.rd_ticks = rd_ticks, .wr_ticks = wr_ticks, .inv_ms = inv_ms};
        return calc_disk_metrics(sum, ticks_per_s).pctutil;
    };
    EXPECT_DOUBLE_EQ(pctutil(500, 500, 10000, 250), 2.5);
    EXPECT_DOUBLE_EQ(pctutil(200000, 0, 10000, 100), 100.0);
    EXPECT_DOUBLE_EQ(pctutil(0, 1, 0, 100), 100.0);
    EXPECT_TRUE(std::isnan(pctutil(0, 0, 0, 100)));
    EXPECT_DOUBLE_EQ(calc_disk_metrics({.rq_ticks = 2999}, 100).queue, 2.0);
}

} // namespace
