#include "stats/sysstat_memory.h"

#include <cinttypes>
#include <cstdio>
#include <functional>
#include <unistd.h>

#include "common/query.h"
#include "platform/host_path.h"
#include "platform/system_info.h"
#include "platform/time_stamp.h"
#include "stats/proc_text.h"
#include "stats/stat_answer.h"
#include "stats/stat_dump.h"

TMemorystatManager *g_p_MemorystatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_memory.cpp";
constexpr const char *kSystemKey = "system_all";

bool g_zfs = false;      // set once by sysstat_memory_init, before the first round
TArcCache zfs_arc_cache; // of the sampling round, under the global statistics lock

using T_MEMORY_FIGURE = T_FIGURE<T_MEMORY_STAT>;
using T_MEMORY_FIGURES = T_FIGURES<T_MEMORY_STAT>;

template <auto FIELD> std::string figure_kb(const T_MEMORY_STAT &record)
{
    return figure_u64<FIELD>(record) + " kB";
}

/* What is told of a key: in answers, in the dump, in the print. The newest interval
 * of the system has more figures than its means. */
constexpr T_MEMORY_FIGURE kSystemNow[] = {{"MemTotal", figure_u64<&T_MEMORY_STAT::MemTotal>},
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
constexpr T_MEMORY_FIGURE kSystemMean[] = {{"MemTotal", figure_u64<&T_MEMORY_STAT::MemTotal>},
                                           {"MemFree", figure_u64<&T_MEMORY_STAT::MemFree>},
                                           {"MemAvailable", figure_u64<&T_MEMORY_STAT::MemAvailable>},
                                           {"Buffers", figure_u64<&T_MEMORY_STAT::Buffers>},
                                           {"Cached", figure_u64<&T_MEMORY_STAT::Cached>},
                                           {"SwapTotal", figure_u64<&T_MEMORY_STAT::SwapTotal>},
                                           {"SwapFree", figure_u64<&T_MEMORY_STAT::SwapFree>},
                                           {"pgmajfault", figure_u64<&T_MEMORY_STAT::pgmajfault>},
                                           {"pgfault", figure_u64<&T_MEMORY_STAT::pgfault>}};
constexpr T_MEMORY_FIGURE kSystemRows[] = {
    {"time_stamp(ms)", figure_u64<&T_MEMORY_STAT::tp_ms>},   {"mem_free", figure_u64<&T_MEMORY_STAT::MemFree>},
    {"mem_avail", figure_u64<&T_MEMORY_STAT::MemAvailable>}, {"buffers", figure_u64<&T_MEMORY_STAT::Buffers>},
    {"cached", figure_u64<&T_MEMORY_STAT::Cached>},          {"SwapTotal", figure_u64<&T_MEMORY_STAT::SwapTotal>},
    {"SwapFree", figure_u64<&T_MEMORY_STAT::SwapFree>},      {"pgmajfault", figure_u64<&T_MEMORY_STAT::pgmajfault>},
    {"pgfault", figure_u64<&T_MEMORY_STAT::pgfault>}};
constexpr T_MEMORY_FIGURE kSystemPrint[] = {
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
constexpr T_MEMORY_FIGURE kProcessRows[] = {{"time_stamp(ms)", figure_u64<&T_MEMORY_STAT::tp_ms>},
                                            {"VmSize", figure_u64<kVmSize>},
                                            {"VmRSS", figure_u64<&T_MEMORY_STAT::VmRSS>},
                                            {"maj_flt", figure_u64<kMajFlt>},
                                            {"min_flt", figure_u64<kMinFlt>}};
constexpr T_MEMORY_FIGURES kProcessAnswer = T_MEMORY_FIGURES(kProcessRows).subspan(1);
constexpr T_MEMORY_FIGURE kProcessPrint[] = {
    {"type    = ", [](const T_MEMORY_STAT &) { return std::string("daemon"); }},
    {"name    = ", [](const T_MEMORY_STAT &record) { return record.name; }},
    {"VmSize  = ", figure_kb<kVmSize>},
    {"VmRSS   = ", figure_kb<&T_MEMORY_STAT::VmRSS>},
    {"maj_flt = ", figure_u64<kMajFlt>},
    {"min_flt = ", figure_u64<kMinFlt>},
    {"tp_ms   = ", figure_u64<&T_MEMORY_STAT::tp_ms>},
    {"data_cnt= ", figure_i64<&T_MEMORY_STAT::data_cnt>}};

T_MEMORY_FIGURES mean_of(const std::string &key)
{
    return is_daemon_name(key) ? kProcessAnswer : T_MEMORY_FIGURES(kSystemMean);
}

T_MEMORY_STAT told_average(const T_MEMORY_STAT &sum)
{
    T_MEMORY_STAT mean = memory_average(sum);
    tell("%s=[%" PRId64 "]\n", "get_avg", static_cast<int64_t>(mean.zfs_mem_cache));
    return mean;
}

constexpr T_STAT_METHOD kMethods[] = {
    {"cur_data", false,
     [](const std::string &key, int) {
         return stat_object(is_daemon_name(key) ? kProcessAnswer : T_MEMORY_FIGURES(kSystemNow),
                            g_p_MemorystatManager->get_current(key));
     }},
    {"avg", true,
     [](const std::string &key, int count) {
         return stat_object(mean_of(key), told_average(g_p_MemorystatManager->get_total(key, count)));
     }},
    {"line_data", false,
     [](const std::string &key, int) {
         return stat_series(mean_of(key), g_p_MemorystatManager->copy_history(key), told_average);
     }},
};

T_ARC_SHARE read_zfs_share()
{
    if (!g_zfs)
        return {};
    bool ran_tool = false;
    const T_ARC arc = zfs_arc_cache.read(&ran_tool);
    /* The list of processes that the CPU step has left may be seconds old now. A
     * service that was restarted in between would read as gone: a row of zeros,
     * then a difference that wraps. */
    if (ran_tool)
        process_scan_expire();
    return zfs_arc_share(arc);
}

void sample_system_memory()
{
    T_MEMORY_STAT stat;
    stat.tp_ms = current_time_stamp();
    std::string text;
    bool complete = true;
    if (proc_read(host_path("/proc/meminfo").c_str(), &text) == 0)
        memory_parse_meminfo(text, &stat);
    else
        complete = false;
    if (proc_read(host_path("/proc/vmstat").c_str(), &text) == 0)
        memory_parse_vmstat(text, &stat);
    else
        complete = false;
    memory_account(read_zfs_share(), &stat);
    if (complete)
        g_p_MemorystatManager->add_sample(kSystemKey, stat);
}

void sample_daemon_memory()
{
    T_MEMORY_STAT stat;
    stat.tp_ms = current_time_stamp();
    const T_PROCESS_SCAN *scan = process_scan_of_round();
    if (scan == nullptr)
        return;
    T_MEMORY_SLOTS slots;
    memory_read_slots(*scan, static_cast<uint64_t>(sysconf(_SC_PAGESIZE)) / 1024, &slots);
    stat.type = 1;
    for (size_t row = 0; row < kProcessTable.size(); ++row) {
        stat.*kVmSize = slots.vm_size[row];
        stat.VmRSS = slots.vm_rss[row];
        stat.*kMajFlt = slots.maj_flt[row];
        stat.*kMinFlt = slots.min_flt[row];
        stat.name = kProcessTable[row];
        g_p_MemorystatManager->add_sample(stat.name, stat);
    }
}

void print_record(const T_MEMORY_STAT &stat)
{
    stat_print(stat.type == 0 ? T_MEMORY_FIGURES(kSystemPrint) : T_MEMORY_FIGURES(kProcessPrint), stat);
}

} // namespace

/* --- Manager --------------------------------------------------------------- */

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

/* --- Sampling -------------------------------------------------------------- */

int sysstat_memory_sample()
{
    if (g_p_MemorystatManager == nullptr)
        return 0;
    sample_system_memory();
    sample_daemon_memory();
    return 0;
}

/* --- Lifecycle, queries, dump ---------------------------------------------- */

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
    trace(kSource, "sysstat_memory_uninit", 1107);
    delete g_p_MemorystatManager;
    g_p_MemorystatManager = nullptr;
    return 0;
}

int sysstat_memory_proc(const char *method, const char *type, const char *key, json_object **out)
{
    const int result = query_head(method, key, g_p_MemorystatManager, "g_p_MemorystatManager");
    return result == kQueryOk ? stat_answer(kMethods, method, type, key, out) : result;
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
    if (const auto history = g_p_MemorystatManager->copy_history(kSystemKey)) {
        text.append("mem_total, ").append(std::to_string(history->empty() ? 0 : history->front().MemTotal));
        text.push_back('\n');
        stat_rows(&text, kSystemRows, *history);
        text.push_back('\n');
    }
    text.append("__daemon_list\n");
    for (const char *name : kProcessTable) {
        const auto history = g_p_MemorystatManager->copy_history(name);
        if (!history)
            continue;
        constexpr size_t kNameTold = 31;
        text.append(std::string_view(name).substr(0, kNameTold)).push_back('\n');
        stat_rows(&text, kProcessRows, *history);
        text.push_back('\n');
    }
    csv_write(folder, "mem_stats.csv", text);
    return 0;
}

int sysstat_memory_print()
{
    if (g_p_MemorystatManager == nullptr)
        return 0;
    print_out("get current memory info\n");
    print_record(g_p_MemorystatManager->get_current(kSystemKey));
    for (const char *name : kProcessTable)
        print_record(g_p_MemorystatManager->get_current(name));
    return 0;
}
