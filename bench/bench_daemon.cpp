#include "bench.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "core/VeloMond.h"
#include "floor_dump.h"
#include "platform/host_path.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/sysstat_camconn.h"

namespace {

constexpr int kIntervals = 90;   // of a quarter of an hour, kept by the samplers
constexpr int kMinutes = 1440;   // of a day, kept of the cameras
constexpr int kPriming = 2;      // the first reading, and one for the running sums
constexpr unsigned kRoundS = 11; // the first round is over

template <typename TValue> size_t records(const TStatManagerBase<TValue> *manager, size_t count, size_t more = 0)
{
    return manager->keys().size() * count * (sizeof(TValue) + more);
}

/* The records alone, one behind the other, in MiB. */
double records_mib()
{
    const size_t bytes = records(g_p_CpustatManager, kIntervals) + records(g_p_NetstatManager, kIntervals) +
                         records(g_p_DiskstatManager, kIntervals) + records(g_p_MemorystatManager, kIntervals) +
                         records(g_p_CamConnstatManager, kMinutes, sizeof(TCamChannels));
    return static_cast<double>(bytes) / (1024 * 1024);
}

} // namespace

double bench_memory_mib(const char *what)
{
    FILE *file = fopen("/proc/self/smaps_rollup", "re");
    if (file == nullptr)
        return 0;
    char line[256];
    long kib = 0;
    while (fgets(line, sizeof(line), file) != nullptr) {
        if (strncmp(line, what, strlen(what)) == 0)
            kib = strtol(line + strlen(what), nullptr, 10);
    }
    (void)fclose(file);
    return static_cast<double>(kib) / 1024;
}

TDaemon::TDaemon()
{
    VeloMond_start();
    for (int i = 0; i < kIntervals + kPriming; ++i) {
        sysstat_cpu_sample();
        sysstat_net_sample();
        sysstat_disk_sample();
        sysstat_memory_sample();
    }
    std::mt19937 any; // the same numbers in each run
    TCamChannels channels;
    channels.valid.set();
    for (uint32_t minute = 0; minute < kMinutes + kPriming; ++minute) {
        for (uint32_t &count : channels.conn_failed_count)
            count += static_cast<uint32_t>(any() % 256);
        T_CAM_CONN_STAT stat;
        stat.channels = TCamChannelsPacked(channels);
        stat.interval = stat.timestamp = uint64_t{minute} * 60000;
        g_p_CamConnstatManager->add_sample(TCamConnStatManager::kKey, stat);
    }
}

TDaemon::~TDaemon()
{
    VeloMond_stop();
}

/* The first group on the daemon: what others leave on the heap would count. But
 * what the daemon needs for its work counts, so it has worked before. */
void bench_memory()
{
    bench_in_child(bench_ask_all);
    sleep(kRoundS);
    bench_line("memory, full histories (PSS)", bench_memory_mib("Pss:"), records_mib(), "MiB");
    bench_line("memory, of that ours (private, dirty)", bench_memory_mib("Private_Dirty:"), records_mib(), "MiB");
}

void bench_dump()
{
    for (int i = 0; i < 4; ++i) // from the fourth on, it is the first folder's turn each time
        VeloMond_statistics_dump();
    const std::string folder = host_path("/Vtmp/.sys_stats/log_0");
    std::vector<std::string> paths, texts;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path());
        paths.push_back(entry.path());
        texts.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    std::vector<TFloorFile> files;
    size_t bytes = 0;
    for (size_t i = 0; i < paths.size(); ++i) {
        files.push_back({paths[i].c_str(), texts[i].data(), texts[i].size()});
        bytes += texts[i].size();
    }
    const TPair pair =
        bench_cpu(VeloMond_statistics_dump, [&] { floor_dump(folder.c_str(), files.data(), files.size()); });
    const std::string what = "dump, full histories, " + std::to_string(bytes / 1024) + " KiB";
    bench_line(what.c_str(), pair.ours, pair.floor, "us CPU");
}
