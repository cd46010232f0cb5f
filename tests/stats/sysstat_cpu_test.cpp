#include "stats/sysstat_cpu.h"

#include <unistd.h>

#include "base/text.h"
#include "common/debug_log.h"
#include "stats/stat_test.h"

namespace {

class CpuStat : public TStatTest<sysstat_cpu_init, sysstat_cpu_uninit, sysstat_cpu_sample, sysstat_cpu_proc> {
protected:
    static void write_process(int pid, const std::string &comm, int user_ticks, int sys_ticks)
    {
        const std::string folder = "/proc/" + std::to_string(pid);
        write_file(folder + "/comm", comm + "\n");
        write_file(folder + "/stat", text_format("%d (%s) S 1 1 1 0 -1 0 0 0 0 0 %d %d %d %d 20 0\n", pid, comm.c_str(),
                                                 user_ticks, sys_ticks, user_ticks / 4, sys_ticks / 4)); // and children
    }
};

TEST_F(CpuStat, SharesOfTheMachineCountInterruptsAsSystemAndNiceInTheWholeOnly)
{
    round("/proc/stat", "cpu  0 0 0 0 0 0 0 0 0 0\ncpu0 0 0 0 0 0 0 0 0 0 0\nintr 1 2 3\n");
    round("/proc/stat", "cpu  100 50 30 700 20 10 60 30 5 5\ncpu0 10 0 0 90 0 0 0 0 0 0\nintr 1 2 3\n");
    round("/proc/stat", "cpu  400 50 30 1400 20 10 60 30 5 5\n" + std::string(8191, 'x') + "cpu0 30 0 0 170\n");
    const TStatAnswer cases[] = {
        {"cur_data", "", "system_all", "30.0 0.0 0.0 0.0 70.0"},
        {"avg", "1", "cpu0", "20.0 0.0 0.0 0.0 80.0"}, // what follows 8191 characters is another line
        {"avg", "1", "system_all", "30.0 0.0 0.0 0.0 70.0"},
        {"avg", "2", "system_all", "20.0 5.0 1.0 1.5 70.0"},
        {"avg", "abc", "system_all", "20.0 5.0 1.0 1.5 70.0"}, // all of it
        {"line_data", "x", "system_all", R"([ "20.0" ] [ "5.0" ] [ "1.0" ] [ "1.5" ] [ "70.0" ])"},
        {"line_data", "", "unknown", "[ ] [ ] [ ] [ ] [ ]"},
    };
    for (const auto &[method, type, name, values] : cases)
        EXPECT_EQ(ask(method, type, name), values) << method << type << name;
    write_file("/out/keep", "");
    sysstat_cpu_dump("/out");
    const std::string csv = read_file("/out/cpu_stats.csv");
    EXPECT_TRUE(csv.starts_with("system\ncpu0\n")) << csv;
    EXPECT_NE(csv.find("\nsystem_all\n"
                       "time_stamp(ms), 1030000, 1020000\n"
                       "user, 30.0, 10.0\nsystem, 0.0, 10.0\niowait, 0.0, 2.0\nsteal, 0.0, 3.0\nidle, 70.0, 70.0\n\n"
                       "__daemon_list\nVnvrd\n"
                       "time_stamp(ms), 1030000, 1020000\ntotal, 0.0, 0.0\nuser, 0.0, 0.0\nsystem, 0.0, 0.0\n\n"),
              std::string::npos)
        << csv;
}

TEST_F(CpuStat, AProcessIsMeasuredInPercentOfOneCoreWithItsReapedChildren)
{
    const long ticks = sysconf(_SC_CLK_TCK);
    write_process(40, "odd name) (VeloMond", 5, 5); // no row of the table
    write_process(49, "VeloMond", 0, 7);            // without user time another one has the row
    write_process(50, "VeloMond", 4, 4);
    round("/proc/stat", "");
    write_process(50, "VeloMond", static_cast<int>(4 + 4 * ticks), static_cast<int>(4 + 8 * ticks));
    round("/proc/stat", "");
    EXPECT_EQ(ask("cur_data", "", "VeloMond"), "150.0 50.0 100.0");
    EXPECT_EQ(g_p_CpustatManager->get_current("VeloMond").type, 1);
    write_process(50, "VeloMond", static_cast<int>(5 + 4 * ticks), static_cast<int>(5 + 8 * ticks));
    round("/proc/stat", "", static_cast<uint64_t>(3'000'000 / ticks));
    EXPECT_EQ(ask("cur_data", "", "VeloMond"), "0.1 0.0 0.0"); // 0.067 of twice 0.033
}

TEST_F(CpuStat, AScanNamesTheProcessesOfTheTableOnceAndTheRoundScansOnce)
{
    const char *const processes_of_folder[][2] = {{".", "VeloMond\n"}, {"self", "VeloMond\n"}, {"50", "VeloMond\n"},
                                                  {"51", "Vnvrd"},     {"52", "Vnvrd \n"},     {"53", "V"},
                                                  {"54", "Vnvrd\n\n"}, {"sys", "Vnvrd\n"}};
    for (const auto &[folder, comm] : processes_of_folder)
        write_file(std::string("/proc/") + folder + "/comm", comm);
    const auto found = [](const TProcessScan *scan) {
        std::map<std::string, size_t> rows;
        for (const auto &[pid, row] : scan->processes)
            rows[pid] = row;
        return rows;
    };
    const std::map<std::string, size_t> rows = {{"50", 13}, {"51", 0}, {"sys", 0}}, later = {{"50", 13}, {"sys", 0}};
    TRoundProcesses processes;
    EXPECT_EQ(found(processes.scan()), rows);
    write_file("/proc/51/comm", "other");
    EXPECT_EQ(found(processes.scan()), rows);
    processes.expire();
    EXPECT_EQ(found(processes.scan()), later);
}

TEST_F(CpuStat, PrintsTheWholeMachine)
{
    json_object *no_output = nullptr;
    EXPECT_EQ(sysstat_cpu_info(&no_output), -1);
    for (const char *line : {"cpu  0\n", "cpu  1 2 3 4 5 6 7 8 9 10\n", "cpu  11 22 33 44 55 66 77 88 99 110\n"})
        round("/proc/stat", line);
    const char *const record = "    type          = system\n    cpu_user      =%d\n    cpu_nice      =%d\n"
                               "    cpu_sys       =%d\n    cpu_idle      =%d\n    cpu_iowait    =%d\n"
                               "    cpu_steal     =%d\n    cpu_hardirq   =%d\n    cpu_softirq   =%d\n"
                               "    cpu_guest     =%d\n    cpu_guest_nice=%d\n    cpu_uptime    =%d\n"
                               "    inv_ms        =%d\n    tp_ms         =0\n";
    EXPECT_EQ(told_by([] { sysstat_cpu_print(); }),
              "get_total 15min\n" + text_format(record, 11, 22, 33, 44, 55, 88, 66, 77, 99, 110, 396, 20000) +
                  "get_total 10sec\n" + text_format(record, 10, 20, 30, 40, 50, 80, 60, 70, 90, 100, 360, 10000));
    T_CPU_STAT process{.type = 1, .name = "Vnvrd"};
    for (int i = 0; i < 2; ++i, process.cpu_user += 2, process.cpu_sys += 3, process.inv_ms += 4)
        g_p_CpustatManager->add_sample("system_all", process);
    EXPECT_TRUE(told_by([] { sysstat_cpu_print(); })
                    .ends_with("\nget_total 10sec\n    type          = daemon\n    name          = Vnvrd\n"
                               "    utime         =2\n    stime         =3\n    inv_ms        =4\n"
                               "    tp_ms         =0\n"));
}

TEST_F(CpuStat, ForeignAndTruncatedLinesGiveWhatTheyHold)
{
    const auto machine = cpu_line_parse("cpu  1 2 3"), core = cpu_line_parse("cpu12 1 2 3 4 5 6 7 8 9 10\n");
    EXPECT_EQ(std::tie(machine->key, machine->stat.cpu_uptime), std::tuple("system_all", 6));
    EXPECT_EQ(std::tie(core->key, core->stat.cpu_uptime, core->stat.cpu_guest_nice),
              std::tuple("cpu12", 36, 10)); // guests are in user and nice
    for (const char *line : {"", "cp", "cpu", "cpux 1 2", "intr 5", " cpu 1"})
        EXPECT_FALSE(cpu_line_parse(line)) << line;
}

TEST_F(CpuStat, RefusalsAndTheTwoThatAreOnlyLogged)
{
    EXPECT_EQ(ask("avg", "-1", "system_all", -6), "");
    EXPECT_EQ(ask("other", "0", "system_all"), "");
    sysstat_cpu_uninit();
    EXPECT_EQ(ask("avg", "0", "system_all"), "");
    const std::string proc = "sysstat_cpu.cpp:sysstat_cpu_proc(632) sysstat_cpu_proc ret_val = %d)"
                             "sysstat_cpu.cpp:sysstat_cpu_proc(634) sysstat_cpu_proc p_json_out = null)";
    EXPECT_EQ(log_text(kLogCpu),
              "sysstat_cpu.cpp:sysstat_cpu_init(791) sysstat_cpu_init)" + text_format(proc.c_str(), -3) +
                  "sysstat_cpu.cpp:sysstat_cpu_uninit(801) sysstat_cpu_uninit)" + text_format(proc.c_str(), -2));
}

} // namespace
