#include "stats/sysstat_memory.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/text.h"
#include "stats/stat_test.h"

namespace {

/* /proc/meminfo in the kernel's order, with lines that are not read. */
std::string meminfo(uint64_t total, uint64_t available, uint64_t cached)
{
    return text_format(
        "MemTotal:       %8lu kB\nMemFree:  100 kB\nMemAvailable: %lu kB\nBuffers: 20 kB\nCached: %lu kB\n"
        "SwapCached: 9 kB\nActive(anon): 9 kB\nSwapTotal: 50 kB\nSwapFree: 40 kB\nShmem: 6 kB\n"
        "SReclaimable: 7 kB\nHugePages_Total: 0\n",
        total, available, cached);
}

class MemoryStat
    : public TStatTest<sysstat_memory_init, sysstat_memory_uninit, sysstat_memory_sample, sysstat_memory_proc> {
protected:
    static void write_process(int pid, const std::string &comm, int pages, int rss, int child_faults)
    {
        const std::string folder = text_format("/proc/%d", pid);
        write_file(folder + "/comm", comm + "\n");
        write_file(folder + "/statm", text_format("%d 9 9 9 9 9 9\n", pages));
        /* Fields 10 to 13: minflt, cminflt, majflt, cmajflt. */
        write_file(folder + "/stat",
                   text_format("%d (%s) S 1 1 1 0 -1 0 5000 %d 6000 %d 14 15 16 17 20 0 1 0 5 99 %d 7\n", pid,
                               comm.c_str(), 10 * child_faults, child_faults, rss));
    }
    static void round(const std::string &meminfo_text, const std::string &vmstat_text)
    {
        write_file("/proc/meminfo", meminfo_text);
        TStatTest::round("/proc/vmstat", vmstat_text);
    }
    /* Where the tool has never been asked. */
    static void restart_on_zfs(uint32_t platform_system)
    {
        sysstat_memory_uninit();
        fake::state()->platform_system = platform_system;
        sysstat_memory_init();
        fake::advance_ms(1000000); // its last answer is kept for the whole process
    }
    static uint64_t page_kb() { return static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024; }
};

TEST_F(MemoryStat, AnswersLevelsTheFaultsOfTheIntervalAndMeansAndDumpsNewestFirst)
{
    write_process(70, "VeloMond", 10, 2, 1);
    round(meminfo(999, 999, 30), "nr_free_pages 9\npgfault 1000\npgmajfault 10\n");
    write_process(70, "VeloMond", 11, 3, 4);
    round(meminfo(900, 999, 40), "nr_free_pages 9\npgfault 1500\npgmajfault 12\n");
    write_process(70, "VeloMond", 14, 4, 9);
    round(meminfo(1000, 999, 60), "nr_free_pages 9\npgfault 1600\npgmajfault 13\n");
    EXPECT_EQ(ask("cur_data", "", "system_all"), "1000 820 100 180 20 60 7 50 40 1 100 0");
    EXPECT_EQ(ask("cur_data", "", "VeloMond"), text_format("56 %lu 5 50", 4 * page_kb()));
    EXPECT_EQ(g_p_MemorystatManager->get_current("VeloMond").type, 1);
    EXPECT_EQ(ask("avg", "5", "system_all"), "950 100 170 20 50 50 40 1 300");
    EXPECT_EQ(told_by([] { ask("avg", "1", "VeloMond"); }), "get_avg=[0]\n");
    EXPECT_EQ(ask("avg", "2", "VeloMond"), text_format("50 %lu 4 40", 7 * page_kb() / 2)); // cut to whole numbers
    write_file("/out/keep", "");
    EXPECT_EQ(told_by([] { sysstat_memory_dump("/out"); }),
              "sysstat_memory.cpp:sysstat_memory_dump(967) str_stats_folder=[/out]\n");
    const std::string csv = read_file("/out/mem_stats.csv");
    EXPECT_TRUE(csv.starts_with("system\nmem_total, 900\ntime_stamp(ms), 1030000, 1020000\nmem_free, 100, 100\n"
                                "mem_avail, 180, 160\nbuffers, 20, 20\ncached, 60, 40\nSwapTotal, 50, 50\n"
                                "SwapFree, 40, 40\npgmajfault, 1, 2\npgfault, 100, 500\n\n__daemon_list\n"
                                "Vnvrd\ntime_stamp(ms), 1030000, 1020000\nVmSize, 0, 0\n"))
        << csv;
    EXPECT_NE(csv.find(text_format("VmSize, 56, 44\nVmRSS, %lu, %lu\nmaj_flt, 5, 3\nmin_flt, 50, 30\n\n", 4 * page_kb(),
                                   3 * page_kb())),
              std::string::npos)
        << csv;
    testing::internal::CaptureStdout();
    EXPECT_EQ(sysstat_memory_print(), 0); // the figures: tests/e2e
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "get current memory info\n");
}

TEST_F(MemoryStat, ASeriesIsOfMeansPerMinute)
{
    round(meminfo(1000, 0, 0), "");
    for (uint64_t cached = 10; cached <= 70; cached += 10) // means: 45 of the newest six, then 10
        round(meminfo(1000, 0, cached), "");
    EXPECT_NE(ask("line_data", "-1", "system_all").find(R"( [ "45", "10" ] )"), std::string::npos);
    EXPECT_EQ(told_by([] { ask("line_data", "", "Vnvrd"); }), "get_avg=[0]\nget_avg=[0]\n");
}

TEST_F(MemoryStat, AMissingFileLosesTheSystemsReadingOnly)
{
    round(meminfo(1000, 0, 0), "");
    for (const char *file : {"/proc/meminfo", "/proc/vmstat"}) {
        ASSERT_EQ(rename((root() + file).c_str(), (root() + "/gone").c_str()), 0);
        EXPECT_EQ(told_by([] { sysstat_memory_sample(); }), "");
        ASSERT_EQ(rename((root() + "/gone").c_str(), (root() + file).c_str()), 0);
    }
    EXPECT_TRUE(g_p_MemorystatManager->copy_history("system_all")->empty());
    EXPECT_EQ(g_p_MemorystatManager->copy_history("VeloMond")->size(), 2U);
}

TEST_F(MemoryStat, OnZfsWhatTheCacheWouldGiveBackIsFree)
{
    fake::state()->popen = [](const fake::argv_t &) { return "81920\n61440\n40960\n"; }; // 80, 60 and 40 kB
    for (const uint32_t system : {0U, 1U, 2U, 3U, 8U, 10U, 9U}) {
        restart_on_zfs(system);
        fake::state()->programs.clear();
        round(meminfo(1000, 0, 30), "");
        round(meminfo(1000, 0, 30), "");
        EXPECT_EQ(fake::state()->programs.size(), system == 2 || system == 9 ? 1U : 0U) << system;
    }
    EXPECT_EQ(ask("cur_data", "", "system_all"), "1000 810 140 190 20 30 7 50 40 0 0 40");
    EXPECT_EQ(told_by([] { ask("avg", "0", "system_all"); }), "get_avg=[40]\n");
}

TEST_F(MemoryStat, AServiceThatRestartsWhileTheToolRunsIsStillFound)
{
    restart_on_zfs(2);
    write_process(70, "VeloMond", 10, 2, 1);
    for (const int new_pid : {71, 72}) {
        TRoundProcesses processes;
        (void)processes.scan(); // as the CPU step does
        fake::state()->popen = [new_pid](const fake::argv_t &) -> std::optional<std::string> {
            std::filesystem::remove_all(root() + text_format("/proc/%d", new_pid - 1));
            write_process(new_pid, "VeloMond", 10 + new_pid, 3, 1);
            return std::nullopt; // and the tool fails: it runs again in the next round
        };
        write_file("/proc/meminfo", meminfo(1000, 0, 30));
        write_file("/proc/vmstat", "");
        sysstat_memory_sample_round(&processes);
    }
    EXPECT_EQ(ask("cur_data", "", "VeloMond"), text_format("328 %lu 0 0", 3 * page_kb()));
}

TEST_F(MemoryStat, WithoutTheToolTheNamesAreReadOncePerRound)
{
    TRoundProcesses processes;
    write_file("/proc/vmstat", "");
    (void)processes.scan();
    write_process(70, "VeloMond", 10, 2, 1); // started between the two steps
    sysstat_memory_sample_round(&processes);
    round(meminfo(1000, 0, 30), "");
    EXPECT_EQ(g_p_MemorystatManager->get_current("VeloMond").pgfault, 10U); // of a first row of zeros
}

TEST_F(MemoryStat, TheFirstProcessOfANameWithAnySizeFillsTheRow)
{
    write_process(1, "Vnvrd", 0, 9, 9); // on its way out: its size is gone already
    write_process(2, "Vnvrd", 10, 20, 30);
    write_process(3, "Vnvrd", 50, 60, 70);
    write_process(4, "VrecStream", 7, 8, 9);
    ASSERT_EQ(unlink((root() + "/proc/4/stat").c_str()), 0);
    TProcessScan scan;
    scan.proc = TFd(open((root() + "/proc").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    scan.processes = {{"9", 0}, {"1", 0}, {"2", 0}, {"3", 0}, {"4", 1}};
    const auto sizes = [](const T_MEMORY_STAT &record) { return std::tuple(record.*kVmSize, record.VmRSS); };
    const auto records = memory_read_processes(scan, 64);
    EXPECT_EQ(sizes(records[0]), std::tuple(40, 1280)); // of 4 kB, whatever the pages are
    EXPECT_EQ(std::tuple(records[0].*kMajFlt, records[0].*kMinFlt), std::tuple(30, 300));
    EXPECT_EQ(sizes(records[1]), std::tuple(28, 0)); // died in between: what was read stays
    EXPECT_EQ(sizes(records[2]), std::tuple(0, 0));
    for (const size_t before : {20U, 21U}) { // what follows the 21st that was read is ignored
        scan.processes.assign(before, {"1", 0});
        scan.processes.push_back({"2", 0});
        EXPECT_EQ(sizes(memory_read_processes(scan, 4)[0]), before == 20 ? std::tuple(40, 80) : std::tuple(0, 36));
    }
}

TEST(MemoryParse, TakesTenDigitsOfLinesAsTheyFitTheBuffer)
{
    const std::string long_line(4990, 'x');
    const std::tuple<std::string, uint64_t, uint64_t> cases[] = {
        {"MemTotal:       5 kB\nMemFree:\t6\n", 5, 6},
        {"MemTotal: 12345678901234 kB\nMemFree:123", 1234567890, 123},
        {"MemTotal: x7\nMemFree", 0, 0},
        {"MemTotal : 5 kB\n MemFree: 6 kB\n:7\n\n", 0, 0}, // other names
        {long_line + ": 7 kB\nMemFree: 6 kB\n", 0, 6},
        {std::string(255, 'x') + "MemTotal: 5 kB\nMemFree: 6 kB\n", 5, 6}, // what follows 255 is a line
        {std::string(254, 'x') + "MemTotal: 5 kB\nMemFree: 6 kB\n", 0, 6},
    };
    for (const auto &[text, total, free] : cases) {
        const T_MEMORY_STAT stat = memory_parse(text, "pgfault 5\n");
        EXPECT_EQ(std::tie(stat.MemTotal, stat.MemFree), std::tie(total, free)) << text;
        EXPECT_EQ(std::tie(stat.pgfault, stat.pgmajfault), std::tuple(5, 0));
    }
}

TEST(MemoryAccount, UsedIsNeverNegative)
{
    T_MEMORY_STAT stat = memory_parse(meminfo(149, 999, 30), "");
    memory_account({}, &stat);
    EXPECT_EQ(stat.MemAvailable, 150U);
    EXPECT_EQ(stat.MemUsed, 0U);
}

} // namespace
