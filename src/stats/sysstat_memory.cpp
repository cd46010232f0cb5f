#include "stats/sysstat_memory.h"

#include <cinttypes>
#include <functional>
#include <unistd.h>

#include "platform/system_info.h"
#include "platform/time_stamp.h"
#include "stats/proc_text.h"
#include "stats/stat_dump.h"
#include "stats/stat_kind.h"

TMemorystatManager *g_p_MemorystatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_memory.cpp";
constexpr const char *kSystemKey = "system_all";

bool g_zfs = false;      // set once by sysstat_memory_init, before the first round
TArcCache zfs_arc_cache; // of the sampling round, under the global statistics lock

using TMemoryFigure = TFigure<T_MEMORY_STAT>;

template <auto kField> std::string figure_kb(const T_MEMORY_STAT &record)
{
    return figure_u64<kField>(record) + " kB";
}

/* The figures of a key: in answers and in the dump, and in the print. The newest interval
 * of the system has more figures than its means, which the dump has too. */
constexpr TMemoryFigure kSystemNow[] = {{"MemTotal", figure_u64<&T_MEMORY_STAT::MemTotal>},
                                        {"MemUsed", figure_u64<&T_MEMORY_STAT::MemUsed>},
                                        {"MemFree", figure_u64<&T_MEMORY_STAT::MemFree>},
                                        {"MemAvailable", figure_u64<&T_MEMORY_STAT::MemAvailable>},
                                        {"Buffers", figure_u64<&T_MEMORY_STAT::Buffers>},
                                        {"Cached", figure_u64<&T_MEMORY_STAT::Cached>},
                                        {"SReclaimable", figure_u64<&T_MEMORY_STAT::SReclaimable>},
                                        {"SwapTotal", figure_u64<&T_MEMORY_STAT::SwapTotal>},
                                        {"SwapFree", figure_u64<&T_MEMORY_STAT::SwapFree>},
                                        {"pgmajfault", figure_u64<&T_MEMORY_STAT::pgmajfault>},
                                        {"pgfault", figure_u64<&T_MEMORY_STAT::pgfault>},
                                        {"zfs_mem_cache", figure_u64<&T_MEMORY_STAT::zfs_mem_cache>}};
constexpr TMemoryFigure kSystemMean[] = {{"MemTotal", figure_u64<&T_MEMORY_STAT::MemTotal>, nullptr},
                                         {"MemFree", figure_u64<&T_MEMORY_STAT::MemFree>, "mem_free"},
                                         {"MemAvailable", figure_u64<&T_MEMORY_STAT::MemAvailable>, "mem_avail"},
                                         {"Buffers", figure_u64<&T_MEMORY_STAT::Buffers>, "buffers"},
                                         {"Cached", figure_u64<&T_MEMORY_STAT::Cached>, "cached"},
                                         {"SwapTotal", figure_u64<&T_MEMORY_STAT::SwapTotal>},
                                         {"SwapFree", figure_u64<&T_MEMORY_STAT::SwapFree>},
                                         {"pgmajfault", figure_u64<&T_MEMORY_STAT::pgmajfault>},
                                         {"pgfault", figure_u64<&T_MEMORY_STAT::pgfault>}};
constexpr TMemoryFigure kProcess[] = {{"VmSize", figure_u64<kVmSize>},
                                      {"VmRSS", figure_u64<&T_MEMORY_STAT::VmRSS>},
                                      {"maj_flt", figure_u64<kMajFlt>},
                                      {"min_flt", figure_u64<kMinFlt>}};
constexpr TMemoryFigure kSystemPrint[] = {
    {"type         = ", [](const T_MEMORY_STAT &) { return std::string("system"); }},
    {"MemTotal     = ", figure_kb<&T_MEMORY_STAT::MemTotal>},
    {"MemUsed      = ", figure_kb<&T_MEMORY_STAT::MemUsed>},
    {"MemFree      = ", figure_kb<&T_MEMORY_STAT::MemFree>},
    {"MemAvailable = ", figure_kb<&T_MEMORY_STAT::MemAvailable>},
    {"Buffers      = ", figure_kb<&T_MEMORY_STAT::Buffers>},
    {"Cached       = ", figure_kb<&T_MEMORY_STAT::Cached>},
    {"SReclaimable = ", figure_kb<&T_MEMORY_STAT::SReclaimable>},
    {"Shmem        = ", figure_kb<&T_MEMORY_STAT::Shmem>},
    {"zfs_mem_cache= ", figure_kb<&T_MEMORY_STAT::zfs_mem_cache>},
    {"SwapTotal    = ", figure_kb<&T_MEMORY_STAT::SwapTotal>},
    {"SwapFree     = ", figure_kb<&T_MEMORY_STAT::SwapFree>},
    {"pgmajfault   = ", figure_u64<&T_MEMORY_STAT::pgmajfault>},
    {"pgfault      = ", figure_u64<&T_MEMORY_STAT::pgfault>},
    {"tp_ms        = ", figure_u64<&T_MEMORY_STAT::tp_ms>},
    {"data_cnt     = ", figure_i64<&T_MEMORY_STAT::data_cnt>}};
constexpr TMemoryFigure kProcessPrint[] = {
    {"type    = ", [](const T_MEMORY_STAT &) { return std::string("daemon"); }},
    {"name    = ", [](const T_MEMORY_STAT &record) { return std::string(record.name); }},
    {"VmSize  = ", figure_kb<kVmSize>},
    {"VmRSS   = ", figure_kb<&T_MEMORY_STAT::VmRSS>},
    {"maj_flt = ", figure_u64<kMajFlt>},
    {"min_flt = ", figure_u64<kMinFlt>},
    {"tp_ms   = ", figure_u64<&T_MEMORY_STAT::tp_ms>},
    {"data_cnt= ", figure_i64<&T_MEMORY_STAT::data_cnt>}};

T_MEMORY_STAT logged_average(const T_MEMORY_STAT &sum)
{
    T_MEMORY_STAT mean = memory_average(sum);
    write_stderr("%s=[%" PRId64 "]\n", "get_avg", static_cast<int64_t>(mean.zfs_mem_cache));
    return mean;
}

constexpr TStatPrint<T_MEMORY_STAT> kPrint = {kSystemPrint, kProcessPrint};
constexpr TStatViews<T_MEMORY_STAT> kNow = {{kSystemNow}, {kProcess}};
constexpr TStatViews<T_MEMORY_STAT> kMeans = {{kSystemMean, logged_average}, {kProcess, logged_average}};
constexpr TStatViews<T_MEMORY_STAT> kRows = {{kSystemMean}, {kProcess}};
constexpr TStatMethod<T_MEMORY_STAT> kMethods[] = {
    {"cur_data", kNewest<T_MEMORY_STAT>, kNow},
    {"avg", kTotal<T_MEMORY_STAT>, kMeans},
    {"line_data", kSeries<T_MEMORY_STAT>, kMeans},
};

TArcShare read_zfs_share(TRoundProcesses *processes)
{
    if (!g_zfs)
        return {};
    bool ran_tool = false;
    const TArc arc = zfs_arc_cache.read(&ran_tool);
    /* The list of processes that an earlier step has made may be seconds old now. A
     * service that was restarted in between would read as gone: a row of zeros,
     * then a difference that wraps. */
    if (ran_tool)
        processes->expire();
    return zfs_arc_share(arc);
}

void sample_system_memory(TRoundProcesses *processes)
{
    const uint64_t now_ms = current_time_stamp();
    const auto meminfo = proc_read("/proc/meminfo");
    const auto vmstat = proc_read("/proc/vmstat");
    const TArcShare arc = read_zfs_share(processes);
    if (!meminfo || !vmstat)
        return;
    T_MEMORY_STAT stat = memory_parse(*meminfo, *vmstat);
    stat.tp_ms = now_ms;
    memory_account(arc, &stat);
    g_p_MemorystatManager->add_sample(kSystemKey, stat);
}

void sample_daemon_memory(TRoundProcesses *processes)
{
    const uint64_t now_ms = current_time_stamp();
    const TProcessScan *scan = processes->scan();
    if (scan == nullptr)
        return;
    for (T_MEMORY_STAT &stat : memory_read_processes(*scan, static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024)) {
        stat.tp_ms = now_ms;
        g_p_MemorystatManager->add_sample(std::string(stat.name), stat);
    }
}

} // namespace

TMemorystatManager::TMemorystatManager()
{
    trace("sysstat_memory.h", "TMemorystatManager", 244);
    TMemorystatManager::init_map();
}

TMemorystatManager::~TMemorystatManager()
{
    trace("sysstat_memory.h", "~TMemorystatManager", 249);
}

int TMemorystatManager::add_sample(const std::string &key, const T_MEMORY_STAT &raw)
{
    return store(key, raw, std::mem_fn(&T_MEMORY_STAT::difference));
}

void TMemorystatManager::init_map()
{
    trace(kSource, "init_map", 72);
    for (const char *name : kProcessTable)
        track(name);
    track(kSystemKey);
}

int sysstat_memory_init()
{
    trace(kSource, "sysstat_memory_init", 1096);
    uint32_t system = 0;
    (void)get_platform_system(&system);
    g_zfs = system == 2 || system == 9;
    g_p_MemorystatManager = new TMemorystatManager;
    return 0;
}

int sysstat_memory_uninit()
{
    return stat_uninit(&g_p_MemorystatManager, kSource, "sysstat_memory_uninit", 1107);
}

int sysstat_memory_sample()
{
    TRoundProcesses processes;
    return sysstat_memory_sample_round(&processes);
}

int sysstat_memory_sample_round(TRoundProcesses *processes)
{
    if (g_p_MemorystatManager == nullptr)
        return 0;
    sample_system_memory(processes);
    sample_daemon_memory(processes);
    return 0;
}

int sysstat_memory_proc(const char *method, const char *type, const char *key, json_object **out)
{
    return stat_proc<T_MEMORY_STAT>(kMethods, g_p_MemorystatManager, "g_p_MemorystatManager", method, type, key, out);
}

int sysstat_memory_info(json_object **out)
{
    if (!json_is_valid(*out))
        return -1;
    json_give(*out, "mem_phy", TJson(json_object_new_int(0)));
    json_give(*out, "mem_swap", TJson(json_object_new_int(0)));
    return 0;
}

int sysstat_memory_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_memory_dump", 967, folder);
    if (g_p_MemorystatManager == nullptr)
        return 0;
    std::string text = "system\n";
    const auto history = stat_history(*g_p_MemorystatManager, kSystemKey);
    const uint64_t total_kb = history.empty() ? 0 : history.front().MemTotal;
    stat_block(&text, "mem_total, " + std::to_string(total_kb), kRows.of(kSystemKey), history);
    text.append("__daemon_list\n");
    for (const char *name : kProcessTable)
        stat_block(&text, name, kRows.of(name), stat_history(*g_p_MemorystatManager, name));
    csv_write(folder, "mem_stats.csv", text);
    return 0;
}

int sysstat_memory_print()
{
    if (g_p_MemorystatManager == nullptr)
        return 0;
    write_stdout("get current memory info\n");
    stat_print(kPrint, g_p_MemorystatManager->get_current(kSystemKey));
    for (const char *name : kProcessTable)
        stat_print(kPrint, g_p_MemorystatManager->get_current(name));
    return 0;
}
