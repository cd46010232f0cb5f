#include "stats/sysstat_cpu.h"

#include <unistd.h>

#include "base/text.h"
#include "common/debug_log.h"
#include "platform/time_stamp.h"
#include "stats/proc_text.h"
#include "stats/stat_dump.h"
#include "stats/stat_kind.h"

TCpustatManager *g_p_CpustatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_cpu.cpp";
constexpr size_t kLine = 8192;

long g_ticks_per_s = 100; // set once by sysstat_cpu_init, before any reader

template <auto kField> std::string percent(const TCpuPercent &percents)
{
    return text_fixed(percents.*kField, 1);
}

TCpuPercent percent_of_process(const T_CPU_STAT &stat)
{
    return cpu_percent_of_process(stat, g_ticks_per_s);
}

/* The figures of a key: in answers and in the dump, and in the print. */
constexpr TFigure<TCpuPercent> kSystem[] = {{"user_pcnt", percent<&TCpuPercent::user>, "user"},
                                            {"sys_pcnt", percent<&TCpuPercent::sys>, "system"},
                                            {"iowait_pcnt", percent<&TCpuPercent::iowait>, "iowait"},
                                            {"steal_pcnt", percent<&TCpuPercent::steal>, "steal"},
                                            {"idle_pcnt", percent<&TCpuPercent::idle>, "idle"}};
constexpr TFigure<TCpuPercent> kProcess[] = {{"total_pcnt", percent<&TCpuPercent::total>, "total"},
                                             {"user_pcnt", percent<&TCpuPercent::user>, "user"},
                                             {"sys_pcnt", percent<&TCpuPercent::sys>, "system"}};
constexpr TFigure<T_CPU_STAT> kSystemPrint[] = {
    {"type          = ", [](const T_CPU_STAT &) { return std::string("system"); }},
    {"cpu_user      =", figure_u64<&T_CPU_STAT::cpu_user>},
    {"cpu_nice      =", figure_u64<&T_CPU_STAT::cpu_nice>},
    {"cpu_sys       =", figure_u64<&T_CPU_STAT::cpu_sys>},
    {"cpu_idle      =", figure_u64<&T_CPU_STAT::cpu_idle>},
    {"cpu_iowait    =", figure_u64<&T_CPU_STAT::cpu_iowait>},
    {"cpu_steal     =", figure_u64<&T_CPU_STAT::cpu_steal>},
    {"cpu_hardirq   =", figure_u64<&T_CPU_STAT::cpu_hardirq>},
    {"cpu_softirq   =", figure_i64<&T_CPU_STAT::cpu_softirq>},
    {"cpu_guest     =", figure_i64<&T_CPU_STAT::cpu_guest>},
    {"cpu_guest_nice=", figure_i64<&T_CPU_STAT::cpu_guest_nice>},
    {"cpu_uptime    =", figure_i64<&T_CPU_STAT::cpu_uptime>},
    {"inv_ms        =", figure_i64<&T_CPU_STAT::inv_ms>},
    {"tp_ms         =", figure_u64<&T_CPU_STAT::tp_ms>}};
constexpr TFigure<T_CPU_STAT> kProcessPrint[] = {
    {"type          = ", [](const T_CPU_STAT &) { return std::string("daemon"); }},
    {"name          = ", [](const T_CPU_STAT &record) { return std::string(record.name); }},
    {"utime         =", figure_u64<&T_CPU_STAT::cpu_user>},
    {"stime         =", figure_u64<&T_CPU_STAT::cpu_sys>},
    {"inv_ms        =", figure_i64<&T_CPU_STAT::inv_ms>},
    {"tp_ms         =", figure_u64<&T_CPU_STAT::tp_ms>}};

constexpr TStatPrint<T_CPU_STAT> kPrint = {kSystemPrint, kProcessPrint};
constexpr TStatViews<T_CPU_STAT, TCpuPercent> kViews = {{kSystem, cpu_percent_of_system},
                                                        {kProcess, percent_of_process}};
constexpr TStatMethod<T_CPU_STAT, TCpuPercent> kMethods[] = {
    {"cur_data", kNewest<T_CPU_STAT>, kViews},
    {"avg", kTotal<T_CPU_STAT>, kViews},
    {"line_data", kSeries<T_CPU_STAT>, kViews},
};

void sample_system()
{
    const auto text = proc_read("/proc/stat");
    if (!text)
        return;
    const uint64_t now_ms = current_time_stamp();
    for (std::string_view rest = *text, line; !(line = text_next_line(&rest, kLine)).empty();) {
        auto parsed = cpu_line_parse(line);
        if (!parsed)
            continue;
        parsed->stat.inv_ms = parsed->stat.tp_ms = now_ms;
        g_p_CpustatManager->add_sample(parsed->key, parsed->stat);
    }
}

void sample_processes(TRoundProcesses *processes)
{
    const uint64_t now_ms = current_time_stamp();
    const TProcessScan *scan = processes->scan();
    if (scan == nullptr)
        return;
    for (T_CPU_STAT &stat : cpu_read_processes(*scan)) {
        stat.inv_ms = stat.tp_ms = now_ms;
        g_p_CpustatManager->add_sample(std::string(stat.name), stat);
    }
}

/* The keys of the machine and of its cores. */
std::vector<std::string> system_keys()
{
    auto keys = g_p_CpustatManager->keys();
    std::erase_if(keys, is_daemon_name);
    return keys;
}

void dump_key(std::string *text, const std::string &key)
{
    stat_block(text, key, kViews.of(key), stat_history(*g_p_CpustatManager, key));
}

} // namespace

TCpustatManager::TCpustatManager()
{
    trace("sysstat_cpu.h", "TCpustatManager", 227);
    TCpustatManager::init_map();
}

TCpustatManager::~TCpustatManager()
{
    trace("sysstat_cpu.h", "~TCpustatManager", 232);
}

void TCpustatManager::init_map()
{
    m_online_cores = static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
    write_stderr("%s:%s(%d)smp_num_cpus=[%d]\n", kSource, "init_map", 46, m_online_cores);
    track(kCpuSystemKey);
    for (int core = 0; core < m_online_cores; ++core)
        track("cpu" + std::to_string(core));
    for (const char *name : kProcessTable)
        track(name);
}

int sysstat_cpu_init()
{
    log_File_Debug(kLogCpu, "%s:%s(%d) sysstat_cpu_init)", kSource, "sysstat_cpu_init", 791);
    trace(kSource, "sysstat_cpu_init", 792);
    g_ticks_per_s = sysconf(_SC_CLK_TCK);
    g_p_CpustatManager = new TCpustatManager;
    return 0;
}

int sysstat_cpu_uninit()
{
    log_File_Debug(kLogCpu, "%s:%s(%d) sysstat_cpu_uninit)", kSource, "sysstat_cpu_uninit", 801);
    return stat_uninit(&g_p_CpustatManager, kSource, "sysstat_cpu_uninit", 802);
}

int sysstat_cpu_sample()
{
    TRoundProcesses processes;
    return sysstat_cpu_sample_round(&processes);
}

int sysstat_cpu_sample_round(TRoundProcesses *processes)
{
    if (g_p_CpustatManager == nullptr)
        return 0;
    sample_system();
    sample_processes(processes);
    return 0;
}

int sysstat_cpu_proc(const char *method, const char *type, const char *name, json_object **out)
{
    const int result =
        stat_proc<T_CPU_STAT>(kMethods, g_p_CpustatManager, "g_p_CpustatManager", method, type, name, out);
    if (result != kQueryNoManager && result != kQueryNoMethod)
        return result;
    log_File_Debug(kLogCpu, "%s:%s(%d) sysstat_cpu_proc ret_val = %d)", kSource, "sysstat_cpu_proc", 632, result);
    log_File_Debug(kLogCpu, "%s:%s(%d) sysstat_cpu_proc p_json_out = %s)", kSource, "sysstat_cpu_proc", 634,
                   json_text(*out).c_str());
    return 0;
}

int sysstat_cpu_info(json_object **out)
{
    if (!json_is_valid(*out))
        return -1;
    TJson cores(json_object_new_array());
    int count = 0;
    if (g_p_CpustatManager != nullptr) {
        count = g_p_CpustatManager->online_cores();
        for (const std::string &key : system_keys())
            json_append_text(cores.get(), key);
    }
    json_give(*out, "core_no", TJson(json_object_new_int(count)));
    json_give(*out, "core_list", std::move(cores));
    return 0;
}

int sysstat_cpu_dump(const char *folder)
{
    if (g_p_CpustatManager == nullptr)
        return 0;
    std::string text = "system\n";
    for (const std::string &key : system_keys())
        dump_key(&text, key);
    text += "__daemon_list\n";
    for (const char *name : kProcessTable)
        dump_key(&text, name);
    csv_write(folder, "cpu_stats.csv", text);
    return 0;
}

int sysstat_cpu_print()
{
    if (g_p_CpustatManager != nullptr)
        stat_print_totals(*g_p_CpustatManager, kCpuSystemKey, 1, kPrint);
    return 0;
}
