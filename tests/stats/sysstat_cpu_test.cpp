#include "stats/sysstat_cpu.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/debug_log.h"
#include "stats/stat_test.h"

namespace {

class CpuStat : public TStatTest {
protected:
    void SetUp() override
    {
        TStatTest::SetUp();
        sysstat_cpu_init();
    }
    void TearDown() override
    {
        sysstat_cpu_uninit();
        TStatTest::TearDown();
    }
    static void write_process(int pid, const std::string &comm, int user_ticks, int sys_ticks)
    {
        const std::string folder = "/proc/" + std::to_string(pid);
        write_file(folder + "/comm", comm + "\n");
        write_file(folder + "/stat", std::to_string(pid) + " (" + comm + ") S 1 1 1 0 -1 0 0 0 0 0 " +
                                         std::to_string(user_ticks) + " " + std::to_string(sys_ticks) + " 1 2 20 0\n");
    }
    /* One round, ten seconds after the one before. */
    static void round(const std::string &stat)
    {
        write_file("/proc/stat", stat);
        fake::advance_ms(10000);
        sysstat_cpu_sample();
    }
    static std::string ask(const char *method, const char *type, const char *name, int expected = 0)
    {
        return stat_ask(sysstat_cpu_proc, method, type, name, expected);
    }
    static constexpr const char *kProcessNothing = R"({ "total_pcnt": "0.0", "user_pcnt": "0.0", "sys_pcnt": "0.0" })";
};

TEST_F(CpuStat, SharesOfTheMachineCountInterruptsAsSystemAndNiceInTheWholeOnly)
{
    round("cpu  0 0 0 0 0 0 0 0 0 0\ncpu0 0 0 0 0 0 0 0 0 0 0\nintr 1 2 3\n");
    round("cpu  100 50 30 700 20 10 60 30 5 5\ncpu0 10 0 0 90 0 0 0 0 0 0\nintr 1 2 3\n");
    EXPECT_EQ(
        ask("cur_data", "", "system_all"),
        R"({ "user_pcnt": "10.0", "sys_pcnt": "10.0", "iowait_pcnt": "2.0", "steal_pcnt": "3.0", "idle_pcnt": "70.0" })");
    EXPECT_EQ(
        ask("avg", "1", "cpu0"),
        R"({ "user_pcnt": "10.0", "sys_pcnt": "0.0", "iowait_pcnt": "0.0", "steal_pcnt": "0.0", "idle_pcnt": "90.0" })");
}

TEST_F(CpuStat, AProcessIsMeasuredInPercentOfOneCoreWithItsReapedChildren)
{
    const long ticks = sysconf(_SC_CLK_TCK);
    write_process(40, "odd name) (VeloMond", 5, 5); // no row of the table
    write_process(50, "VeloMond", 0, 0);
    round("");
    write_process(50, "VeloMond", static_cast<int>(5 * ticks), static_cast<int>(10 * ticks));
    round("");
    EXPECT_EQ(ask("cur_data", "", "VeloMond"),
              R"({ "total_pcnt": "150.0", "user_pcnt": "50.0", "sys_pcnt": "100.0" })");
    EXPECT_EQ(ask("cur_data", "", "Vnvrd"), kProcessNothing);
}

TEST_F(CpuStat, TheFirstProcessWithUserTimeHoldsTheRowOfItsName)
{
    T_PROCESS_SCAN scan;
    write_process(1, "Vnvrd", -1, 7); // user time: -1 + 1 of its children is none
    write_process(2, "Vnvrd", 10, 20);
    write_process(3, "Vnvrd", 30, 40);
    scan.proc = TFd(open((root() + "/proc").c_str(), O_RDONLY | O_DIRECTORY));
    scan.processes = {{"9", 0}, {"1", 0}, {"2", 0}, {"3", 0}};
    T_CPU_SLOTS slots;
    cpu_read_slots(scan, &slots);
    EXPECT_EQ(slots.user[0], 11U);
    EXPECT_EQ(slots.sys[0], 22U);
}

TEST_F(CpuStat, ForeignAndTruncatedLinesGiveWhatTheyHold)
{
    std::string key;
    T_CPU_STAT stat;
    EXPECT_TRUE(cpu_line_parse("cpu  1 2 3", &key, &stat));
    EXPECT_EQ(key, "system_all");
    EXPECT_EQ(stat.cpu_uptime, 6U);
    EXPECT_TRUE(cpu_line_parse("cpu12 1 2 3 4 5 6 7 8 9 10\n", &key, &stat));
    EXPECT_EQ(key, "cpu12");
    EXPECT_EQ(stat.cpu_uptime, 36U); // guests are in user and nice
    EXPECT_EQ(stat.cpu_guest_nice, 10U);
    for (const char *line : {"", "cp", "cpu", "cpux 1 2", "intr 5", " cpu 1"})
        EXPECT_FALSE(cpu_line_parse(line, &key, &stat)) << line;
    EXPECT_TRUE(cpu_line_parse("cpu ", &key, &stat));
}

TEST_F(CpuStat, RefusalsAndTheTwoThatAreOnlyLogged)
{
    EXPECT_EQ(ask("", "0", "system_all", -4), "none");
    EXPECT_EQ(ask("avg", "0", "", -4), "none");
    EXPECT_EQ(ask("avg", "-1", "system_all", -6), "none");
    EXPECT_EQ(ask("other", "0", "system_all"), "none");
    sysstat_cpu_uninit();
    EXPECT_EQ(ask("avg", "0", "system_all"), "none");
    const std::string log = log_text(kLogCpu);
    EXPECT_NE(log.find("sysstat_cpu.cpp:sysstat_cpu_proc(632) sysstat_cpu_proc ret_val = -3)"
                       "sysstat_cpu.cpp:sysstat_cpu_proc(634) sysstat_cpu_proc p_json_out = null)"),
              std::string::npos);
    EXPECT_NE(log.find("ret_val = -2)"), std::string::npos);
}

TEST_F(CpuStat, LettersAsCountMeanTheWholeHistory)
{
    round("cpu  0 0 0 0 0 0 0 0 0 0\n");
    round("cpu  10 0 0 90 0 0 0 0 0 0\n");
    round("cpu  40 0 0 160 0 0 0 0 0 0\n");
    EXPECT_EQ(ask("avg", "abc", "system_all"), ask("avg", "2", "system_all"));
    EXPECT_NE(ask("avg", "abc", "system_all"), ask("avg", "1", "system_all"));
    EXPECT_EQ(
        ask("line_data", "x", "system_all"),
        R"({ "user_pcnt": [ "20.0" ], "sys_pcnt": [ "0.0" ], "iowait_pcnt": [ "0.0" ], "steal_pcnt": [ "0.0" ], "idle_pcnt": [ "80.0" ] })");
    EXPECT_EQ(ask("line_data", "", "nobody"),
              R"({ "user_pcnt": [ ], "sys_pcnt": [ ], "iowait_pcnt": [ ], "steal_pcnt": [ ], "idle_pcnt": [ ] })");
}

TEST_F(CpuStat, AnUnreadableProcSkipsTheRound)
{
    round("cpu  0 0 0 0 0 0 0 0 0 0\n");
    ASSERT_EQ(rename((root() + "/proc").c_str(), (root() + "/gone").c_str()), 0);
    EXPECT_EQ(told_by([] { sysstat_cpu_sample(); }), "Cannot open /proc: No such file or directory\n");
    EXPECT_TRUE(g_p_CpustatManager->copy_history("VeloMond")->empty());
}

TEST_F(CpuStat, TheDumpIsTransposedNewestFirst)
{
    fake::set_wall_ms(1000000);
    round("cpu  0 0 0 0 0 0 0 0 0 0\n");
    round("cpu  10 0 0 90 0 0 0 0 0 0\n");
    round("cpu  40 0 0 160 0 0 0 0 0 0\n");
    write_file("/out/keep", "");
    sysstat_cpu_dump("/out");
    const std::string csv = read_file("/out/cpu_stats.csv");
    EXPECT_TRUE(csv.starts_with("system\ncpu0\n")) << csv;
    EXPECT_NE(csv.find("\nsystem_all\n"
                       "time_stamp(ms), 1030000, 1020000\n"
                       "user, 30.0, 10.0\nsystem, 0.0, 0.0\niowait, 0.0, 0.0\nsteal, 0.0, 0.0\nidle, 70.0, 90.0\n\n"
                       "__daemon_list\nVnvrd\n"
                       "time_stamp(ms), 1030000, 1020000\ntotal, 0.0, 0.0\nuser, 0.0, 0.0\nsystem, 0.0, 0.0\n\n"),
              std::string::npos)
        << csv;
    EXPECT_TRUE(csv.ends_with("0.0, 0.0\n\n"));
}

TEST_F(CpuStat, NamesCoresAndMachine)
{
    TJson object(json_object_new_object());
    json_object *out = object.get();
    EXPECT_EQ(sysstat_cpu_info(&out), 0);
    EXPECT_NE(json_text(out).find("\"cpu0\", "), std::string::npos);
    EXPECT_TRUE(json_text(out).ends_with("\"system_all\" ] }"));
    out = nullptr;
    EXPECT_EQ(sysstat_cpu_info(&out), -1);
}

} // namespace
