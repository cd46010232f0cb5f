#include "core/VeloMond.h"

#include <ctime>
#include <exception>

#include "base/mutex.h"
#include "base/startup_pages.h"
#include "common/stop_watch.h"
#include "common/trace.h"
#include "common/worker.h"
#include "core/dump_folder.h"
#include "core/round_clock.h"
#include "health/sysstat_smart.h"
#include "health/sysstat_syshealth.h"
#include "health/sysstat_vol.h"
#include "housekeeping/clock_change.h"
#include "housekeeping/cmv_watch.h"
#include "housekeeping/sysstat_autobak.h"
#include "housekeeping/sysstat_db.h"
#include "housekeeping/sysstat_servername.h"
#include "platform/time_stamp.h"
#include "service/VeloMond_RESTful.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/recording_stat.h"
#include "surveillance/reverse_proxy.h"
#include "surveillance/sysstat_camconn.h"

namespace {

constexpr const char *kSource = "VeloMond";

/* A monitor's place in the lifecycle. The order is the order of start and of
 * stop alike. */
struct TMonitor {
    const char *name; // in the log of a stop that hangs
    int (*init)();
    int (*stop)();
};
constexpr TMonitor kMonitors[] = {
    {"CPU statistics", sysstat_cpu_init, sysstat_cpu_uninit},
    {"network statistics", sysstat_net_init, sysstat_net_uninit},
    {"disk statistics", sysstat_disk_init, sysstat_disk_uninit},
    {"memory statistics", sysstat_memory_init, sysstat_memory_uninit},
    {"server-name watcher", servername_thread_start, servername_thread_stop},
    {"volume watcher", vol_thread_start, vol_thread_stop},
    {"SMART watcher", smart_thread_start, smart_thread_stop},
    {"fan watcher", sysstat_syshealth_init, sysstat_syshealth_uninit},
    {"recording watcher", recording_stat_init, recording_stat_uninit},
    {"camera watcher", sysstat_camconn_init, sysstat_camconn_uninit},
    {"database watcher", sysdb_thread_start, sysdb_thread_stop},
    {"proxy-rule watcher", reverse_proxy_init, reverse_proxy_uninit},
};

/* The steps of one sampling round, in order. Some share the list of processes. */
template <int (*kStep)()> int alone(TRoundProcesses * /*processes*/)
{
    return kStep();
}
constexpr int (*kRoundSteps[])(TRoundProcesses *processes) = {
    alone<clock_change_check>,   sysstat_cpu_sample_round,     alone<sysstat_net_sample>, alone<sysstat_disk_sample>,
    sysstat_memory_sample_round, alone<sysstat_autobak_check>, alone<cmv_info_check>,
};

/* The files of a statistics dump, in order. */
constexpr int (*kDumps[])(const char *folder) = {
    sysstat_cpu_dump, sysstat_net_dump, sysstat_disk_dump, sysstat_memory_dump, sysstat_vol_dump,
};

/* What a debug signal prints, in order: deliberately not the CPU statistics. */
constexpr int (*kDebugPrints[])() = {
    sysstat_net_print,
    sysstat_disk_print,
    sysstat_memory_print,
};

/* Held by a whole sampling round and by a whole dump, so that a dump never shows
 * half a round. The managers' own locks are taken inside it. */
TMutex g_statistics_lock;

TWorker g_main_worker;

void monitor_init_all()
{
    g_main_worker.prepare();
    for (const TMonitor &monitor : kMonitors)
        monitor.init();
}

void monitor_uninit_all()
{
    for (const TMonitor &monitor : kMonitors) {
        stop_watch_step(monitor.name);
        monitor.stop();
    }
    g_main_worker.release();
}

void monitor_sample_round()
{
    const TLock guard(g_statistics_lock);
    TRoundProcesses processes;
    for (const auto step : kRoundSteps) {
        try {
            step(&processes);
        } catch (const std::exception &failure) {
            /* Out of memory, most likely. The other steps and the rounds to come go on. */
            write_stderr("%s: a step of the round failed: %s\n", kSource, failure.what());
        }
    }
}

time_t monotonic_s()
{
    return static_cast<time_t>(current_time_stamp_mono_r() / 1000);
}

void VeloMond_monitor_main(TWorker *self)
{
    TRoundClock clock(monotonic_s());
    self->run_passes([&] {
        if (clock.due(monotonic_s()))
            monitor_sample_round();
        self->wait_s(clock.left_s(monotonic_s()));
    });
}

void VeloMond_stats_dump()
{
    const TLock guard(g_statistics_lock);
    const std::string folder = dump_folder_open();
    trace_folder(kSource, "VeloMond_stats_dump", 260, folder.c_str());
    for (const auto dump : kDumps)
        dump(folder.c_str());
}

} // namespace

int VeloMond_start()
{
    trace(kSource, "VeloMond_start", 364);
    monitor_init_all();
    if (g_main_worker.start({"MAIN-worker", "VeloMond_monitor_main", VeloMond_monitor_main}) != 0)
        write_stderr(" %s failed", "VeloMond_monitor_thread_start");
    sysmon_service_init();
    release_startup_pages();
    return 0;
}

int VeloMond_stop()
{
    trace(kSource, "VeloMond_stop", 375);
    stop_watch_begin();
    stop_watch_step("query service");
    sysmon_service_uninit();
    stop_watch_step("MAIN-worker");
    g_main_worker.stop();
    monitor_uninit_all();
    stop_watch_end();
    return 0;
}

int VeloMond_restart()
{
    trace(kSource, "VeloMond_restart", 386);
    return 0;
}

int VeloMond_statistics_dump()
{
    trace(kSource, "VeloMond_statistics_dump", 392);
    VeloMond_stats_dump();
    return 0;
}

void monitor_wakeup()
{
    g_main_worker.wake();
}

void VeloMond_debug_print()
{
    for (const auto print : kDebugPrints) {
        try {
            print();
        } catch (const std::exception &failure) {
            write_stderr("%s: a debug print failed: %s\n", kSource, failure.what());
        }
    }
}
