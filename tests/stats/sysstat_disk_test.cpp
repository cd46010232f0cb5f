#include "stats/sysstat_disk.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <malloc.h>

#include "fake_platform/fake_platform.h"

namespace {

using fake::state;

/* Two cache devices, for which devices that every machine has (1:3 and 1:5) stand
 * in, and what must not be taken for one. */
class DiskStat : public fake::TPlatformTest {
protected:
    void SetUp() override
    {
        TPlatformTest::SetUp();
        write_file("/dev/mapper/vg-root", "");
        const std::string folder = root() + "/dev/mapper/";
        std::filesystem::create_symlink("/dev/null", folder + "cachedev1");
        std::filesystem::create_symlink("/dev/zero", folder + "vg1-long_name_of_a_cachedev");
        std::filesystem::create_symlink("/nowhere", folder + "cachedev9");
        sysstat_disk_init();
    }
    void TearDown() override
    {
        sysstat_disk_uninit();
        TPlatformTest::TearDown();
    }
    /* One round, ten seconds after the one before. */
    static void round(const std::string &diskstats)
    {
        write_file("/proc/diskstats", diskstats);
        fake::advance_ms(10000);
        EXPECT_EQ(sysstat_disk_sample(), 0);
    }
    static std::string ask(const char *method, const char *type, const char *key, int expected = 0)
    {
        json_object *out = nullptr;
        EXPECT_EQ(sysstat_disk_proc(method, type, key, &out), expected) << method;
        const TJson owner(out);
        return out != nullptr ? json_text(out) : "none";
    }
    static constexpr const char *kDevice = "/dev/mapper/cachedev1";
};

TEST_F(DiskStat, TheDumpIsTransposedNewestFirst)
{
    fake::set_wall_ms(1000000);
    round("   1       3 dm-0 100 5 800 400 10 6 90 30 0 7 1000\n"
          "   1       5 dm-1 1 0 1 1 1 0 1 1 0 1 1 9 9 9 9 9 9\n");
    round("   8       0 sda 1 1 1 1 1 1 1 1 1 1 1\n"
          "   1       3 dm-0 104 5 1000 410 10 6 90 30 0 7 3500\n"
          "   1       5 dm-1 1 0 1 1 1 0 1 1 0 1\n"); // a column short: no reading of this one
    round("   1       3 dm-0 107 5 1101 420 20 6 190 20030 0 7 3500\n"
          "   1       5 dm-1 1 0 1 1 1 0 1 1 0 1 1\n");
    write_file("/out/keep", "");
    EXPECT_EQ(fake::stderr_of([] { sysstat_disk_dump("/out"); }),
              "sysstat_disk.cpp:sysstat_disk_dump(583) str_stats_folder=[/out]\n");
    EXPECT_EQ(read_file("/out/disk_stats.csv"),
              "/dev/mapper/cachedev1 1 3\ntime_stamp(ms), 1030000, 1020000\nthroughput, 100.0, 100.0\n"
              "rd_latency, 3.3, 2.5\nwr_latency, 2000.0, 0.0\nrd_io, 3.0, 4.0\nwr_io, 10.0, 0.0\npctutil, 20.0, 0.0\n\n"
              "/dev/mapper/vg1-long_name_of_a_\ntime_stamp(ms), 1030000\nthroughput, 0.0\n"
              "rd_latency, 0.0\nwr_latency, 0.0\nrd_io, 0.0\nwr_io, 0.0\npctutil, 0.0\n\n");
}

TEST_F(DiskStat, AmountsAndAmountsPerSecond)
{
    round("1 3 dm-0 0 0 0 0 0 0 0 0 0 0 0\n");
    round("1 3 dm-0 100 0 2000 250 50 0 400 100 0 0 0\n");
    round("1 3 dm-0 300 0 4000 750 50 0 400 100 0 0 0\n");
    const char *const unknown = "/dev/mapper/cachedev2";
    struct {
        const char *method, *type, *key, *answer;
    } const cases[] = {
        {"cur_data", "x", kDevice,
         R"({ "throughput": "1000", "rd_latency": "2.5", "wr_latency": "0.0", "rd_io": "200", "wr_io": "0" })"},
        {"total", "0", kDevice, R"({ "throughput": "2200", "rd_io": "300", "wr_io": "50" })"},
        {"avg", "", kDevice,
         R"({ "throughput": "110.0", "rd_latency": "2.5", "wr_latency": "2.0", "rd_io": "15.0", "wr_io": "2.5" })"},
        {"line_data", "-1", kDevice,
         R"({ "throughput": [ "110.0" ], "rd_latency": [ "2.5" ], "wr_latency": [ "2.0" ], "rd_io": [ "15.0" ], "wr_io": [ "2.5" ] })"},
        {"avg", "0", unknown,
         R"({ "throughput": "0.0", "rd_latency": "0.0", "wr_latency": "0.0", "rd_io": "0.0", "wr_io": "0.0" })"},
        {"line_data", "", unknown,
         R"({ "throughput": [ ], "rd_latency": [ ], "wr_latency": [ ], "rd_io": [ ], "wr_io": [ ] })"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(ask(one.method, one.type, one.key), one.answer) << one.method;
}

TEST_F(DiskStat, TenThousandMadeUpPathsLeaveNothingBehind)
{
    ask("cur_data", "", "first");
    const size_t before = mallinfo2().uordblks;
    fake::stderr_of([] {
        for (int i = 0; i < 10000; ++i)
            ask("cur_data", "", ("/dev/mapper/made_up_" + std::to_string(i)).c_str());
    });
    EXPECT_LT(mallinfo2().uordblks, before + 64UL * 1024);
}

TEST_F(DiskStat, MethodsWithoutAnObjectAndRefusalsInTheirOrder)
{
    const struct {
        const char *method, *type, *key;
        int result;
        const char *told;
    } cases[] = {
        {"", "0", kDevice, -4, "wrong args.\n"},
        {"total", "-3", kDevice, -6, "str_key=[/dev/mapper/cachedev1 1 3]\ntype=[-3] invalid.\n"},
        {"other", "-1", kDevice, -3, "str_key=[/dev/mapper/cachedev1 1 3]\nmethod=[other] not support\n"},
        {"notify", "", "any", -2, "str_key=[]\n"}, // no disk list
        {"get_disk_flag", "", "any", 0, "str_key=[]\n"},
    };
    for (const auto &one : cases)
        EXPECT_EQ(fake::stderr_of([&] { EXPECT_EQ(ask(one.method, one.type, one.key, one.result), "none"); }),
                  one.told);
    EXPECT_EQ(state()->shm_sets, 2); // at start and on request
    EXPECT_EQ(state()->shm_gets, 3);
    sysstat_disk_uninit();
    EXPECT_EQ(fake::stderr_of([] { ask("notify", "", "x", -2); }), "g_p_DiskstatManager does not exist.\n");
}

TEST_F(DiskStat, NamesTheDevicesAndPrintsTheFirst)
{
    TJson array(json_object_new_array());
    json_object *out = array.get();
    EXPECT_EQ(sysstat_disk_info(&out), 0);
    EXPECT_EQ(json_text(out), R"([ "\/dev\/mapper\/cachedev1", "\/dev\/mapper\/vg1-long_name_of_a_cachedev" ])");
    out = nullptr;
    EXPECT_EQ(sysstat_disk_info(&out), -1);

    for (int i = 0; i < 13; ++i)
        round("1 3 dm-0 " + std::to_string(i) + " 0 2 3 4 0 5 6 0 0 " + std::to_string(100 * i) + "\n");
    const std::string rest = "    rd_sec  =0\n    rd_ticks=0\n    wr_ios  =0\n    wr_sec  =0\n    wr_ticks=0\n";
    EXPECT_EQ(fake::stderr_of([] { sysstat_disk_print(); }),
              "get_total 15min\n    rd_ios  =12\n" + rest +
                  "    rq_ticks=1200\n    inv_ms  =120000\n    tp_ms   =0\nget_total 10sec\n    rd_ios  =10\n" + rest +
                  "    rq_ticks=1000\n    inv_ms  =100000\n    tp_ms   =0\n");
}

TEST_F(DiskStat, RunsOnWithoutMapperAndWithoutDiskstats)
{
    EXPECT_EQ(sysstat_disk_sample(), -1);
    sysstat_disk_uninit();
    std::filesystem::remove_all(root() + "/dev");
    EXPECT_EQ(fake::stderr_of([] { sysstat_disk_init(); }),
              "sysstat_disk.cpp:sysstat_disk_init(745)\nstatManager.h:TStatManagerBase(57)\n"
              "sysstat_disk.h:TDiskstatManager(176)\nsysstat_disk.cpp:init_map(53)\n"
              "Cannot open /dev/mapper: No such file or directory\n");
    round("1 3 dm-0 1 1 1 1 1 1 1 1 1 1 1\n");
}

TEST(DiskLine, FourteenColumnsOrNothing)
{
    T_DISK_LINE parsed;
    for (const char *text : {"253 0 dm-0 1 2 3 4 5 6 7 8 9 10", "253 0 1 2 3 4 5 6 7 8 9 10 11", "253 0", "\n",
                             "253 0 dm-0 1 2 x 4 5 6 7 8 9 10 11", "x 0 dm-0 1 2 3 4 5 6 7 8 9 10 11"})
        EXPECT_FALSE(disk_line_parse(text, &parsed)) << text;
    EXPECT_TRUE(
        disk_line_parse("1 3 d 99999999999999999999 2 3 4 5 6 7 18446744073709551615 9 10 4294967297 12", &parsed));
    EXPECT_EQ(parsed.stat.rd_ios, UINT64_MAX);
    EXPECT_EQ(parsed.stat.rq_ticks, 1U);
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
    T_DISK_METRICS metrics = calc_disk_metrics({.rd_sec = 2, .wr_sec = 1, .rq_ticks = 2999, .inv_ms = 500}, 100);
    EXPECT_EQ(metrics.throughput, 1.0);
    disk_metrics_per_second(&metrics);
    EXPECT_EQ(metrics.throughput, 2.0);
    EXPECT_EQ(metrics.queue, 4.0);
}

} // namespace
