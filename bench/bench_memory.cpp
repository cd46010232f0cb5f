#include "bench.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/VeloMond.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/sysstat_camconn.h"

namespace {

/* The proportional set size of this process, in MiB. */
double pss_mib()
{
    FILE *file = fopen("/proc/self/smaps_rollup", "re");
    if (file == nullptr)
        return 0;
    char line[256];
    long kib = 0;
    while (fgets(line, sizeof(line), file) != nullptr) {
        if (strncmp(line, "Pss:", 4) == 0)
            kib = strtol(line + 4, nullptr, 10);
    }
    (void)fclose(file);
    return static_cast<double>(kib) / 1024;
}

} // namespace

/* The first group to run: what others leave on the heap would count. */
void bench_memory()
{
    VeloMond_start();
    for (int i = 0; i < 92; ++i) { // 90 intervals, and some
        sysstat_cpu_sample();
        sysstat_net_sample();
        sysstat_disk_sample();
        sysstat_memory_sample();
    }
    auto channels = std::make_shared<T_CAM_CHANNELS>();
    for (uint64_t minute = 0; minute < 1442; ++minute) { // 1440 samples, and some
        T_CAM_CONN_STAT stat;
        stat.channels = channels;
        stat.interval = stat.timestamp = minute * 60000;
        g_p_CamConnstatManager->add_sample(TCamConnStatManager::kKey, stat);
    }
    bench_line("PSS, all monitors, full histories", pss_mib(), 0, "MiB");
    VeloMond_stop();
}
