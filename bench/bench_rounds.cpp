#include "bench.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>

#include "floor_round.h"
#include "stats/process_table.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"

namespace {

constexpr int kRepeats = 41;

double cpu_us()
{
    struct timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

/* Medians of the CPU time of both, taken in turns: what disturbs one disturbs
 * the other. */
struct T_PAIR {
    double ours, floor;
};
template <typename OURS, typename FLOOR> T_PAIR measure(OURS ours, FLOOR floor)
{
    std::vector<double> a, b;
    for (int i = 0; i < kRepeats; ++i) {
        const double start = cpu_us();
        ours();
        const double middle = cpu_us();
        floor();
        a.push_back(middle - start);
        b.push_back(cpu_us() - middle);
    }
    std::nth_element(a.begin(), a.begin() + kRepeats / 2, a.end());
    std::nth_element(b.begin(), b.begin() + kRepeats / 2, b.end());
    return {a[kRepeats / 2], b[kRepeats / 2]};
}

void scan(bool want_stat, bool want_statm)
{
    floor_scan(kProcessTable.data(), kProcessTable.size(), want_stat, want_statm);
}

void cpu_floor()
{
    floor_read("/proc/stat");
    scan(true, false);
}

void memory_floor()
{
    floor_read("/proc/meminfo");
    floor_read("/proc/vmstat");
    scan(true, true);
}

void round_ours()
{
    sysstat_cpu_sample();
    sysstat_net_sample();
    sysstat_disk_sample();
    sysstat_memory_sample();
}

void round_floor_two_scans()
{
    cpu_floor();
    floor_read("/proc/net/dev");
    floor_read("/proc/diskstats");
    memory_floor();
}

/* The CPU scan takes "stat", the memory scan "stat" and "statm": with one reading
 * of the names they are the files of one pass, "stat" twice. */
void round_floor_one_scan()
{
    floor_read("/proc/stat");
    floor_read("/proc/net/dev");
    floor_read("/proc/diskstats");
    floor_read("/proc/meminfo");
    floor_read("/proc/vmstat");
    scan(true, true);
}

void line(const char *what, int processes, const T_PAIR &pair)
{
    bench_line((std::string(what) + ", " + std::to_string(processes) + " processes").c_str(), pair.ours, pair.floor,
               "us CPU");
}

} // namespace

void bench_rounds()
{
    sysstat_cpu_init();
    sysstat_net_init();
    sysstat_disk_init();
    sysstat_memory_init();
    constexpr int kCounts[] = {100, 1000, 4000};
    T_PAIR one_scan[std::size(kCounts)];
    for (size_t i = 0; i < std::size(kCounts); ++i) {
        const int count = kCounts[i];
        const TIdleProcesses idle(count);
        line("CPU step", count, measure(sysstat_cpu_sample, cpu_floor));
        line("memory step, its own scan", count, measure(sysstat_memory_sample, memory_floor));
        line("round, floor with two scans", count, measure(round_ours, round_floor_two_scans));
        one_scan[i] = measure(round_ours, round_floor_one_scan);
        line("round, floor with one scan", count, one_scan[i]);
    }
    const auto growth = [&](double T_PAIR::*who) { return (one_scan[2].*who - one_scan[0].*who) / 3900; };
    bench_line("round, growth per process (one scan)", growth(&T_PAIR::ours), growth(&T_PAIR::floor), "us CPU");
    bench_line("network step", measure(sysstat_net_sample, [] { floor_read("/proc/net/dev"); }).ours, 0, "us CPU");
    bench_line("disk step", measure(sysstat_disk_sample, [] { floor_read("/proc/diskstats"); }).ours, 0, "us CPU");
    sysstat_memory_uninit();
    sysstat_disk_uninit();
    sysstat_net_uninit();
    sysstat_cpu_uninit();
}
