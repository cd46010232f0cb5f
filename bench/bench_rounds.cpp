#include "bench.h"

#include <iterator>
#include <string>

#include "floor_round.h"
#include "platform/host_path.h"
#include "stats/process_table.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"

namespace {

/* By the path that we take: behind the host root. */
void read_proc(const char *path)
{
    floor_read(host_path(path).c_str());
}

void scan(bool want_stat, bool want_statm)
{
    floor_scan(host_path("/proc").c_str(), kProcessTable.data(), kProcessTable.size(), want_stat, want_statm);
}

void cpu_floor()
{
    read_proc("/proc/stat");
    scan(true, false);
}

void memory_floor()
{
    read_proc("/proc/meminfo");
    read_proc("/proc/vmstat");
    scan(true, true);
}

void round_ours()
{
    TRoundProcesses processes;
    sysstat_cpu_sample_round(&processes);
    sysstat_net_sample();
    sysstat_disk_sample();
    sysstat_memory_sample_round(&processes);
}

/* One pass over the processes has the files of both samplers, though CPU and memory
 * take "stat" each at its own time. */
void round_floor()
{
    read_proc("/proc/stat");
    read_proc("/proc/net/dev");
    read_proc("/proc/diskstats");
    read_proc("/proc/meminfo");
    read_proc("/proc/vmstat");
    scan(true, true);
}

} // namespace

void bench_round_floor()
{
    round_floor();
}

namespace {

void line(const char *what, int processes, const TPair &pair)
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
    TPair round[std::size(kCounts)];
    for (size_t i = 0; i < std::size(kCounts); ++i) {
        const TIdleProcesses idle(kCounts[i]);
        line("CPU step", kCounts[i], bench_cpu(sysstat_cpu_sample, cpu_floor));
        line("memory step, its own scan", kCounts[i], bench_cpu(sysstat_memory_sample, memory_floor));
        round[i] = bench_cpu(round_ours, round_floor);
        line("round", kCounts[i], round[i]);
    }
    const auto growth = [&](double TPair::*who) { return (round[2].*who - round[0].*who) / 3900; };
    bench_line("round, growth per process", growth(&TPair::ours), growth(&TPair::floor), "us CPU");
    const TPair network = bench_cpu(sysstat_net_sample, [] { read_proc("/proc/net/dev"); });
    bench_line("network step", network.ours, network.floor, "us CPU");
    const TPair disk = bench_cpu(sysstat_disk_sample, [] { read_proc("/proc/diskstats"); });
    bench_line("disk I/O step", disk.ours, disk.floor, "us CPU");
    sysstat_memory_uninit();
    sysstat_disk_uninit();
    sysstat_net_uninit();
    sysstat_cpu_uninit();
}
