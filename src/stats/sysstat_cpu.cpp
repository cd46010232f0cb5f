#include "stats/sysstat_cpu.h"

#include <unistd.h>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/query.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"
#include "stats/proc_text.h"
#include "stats/stat_answer.h"
#include "stats/stat_dump.h"

TCpustatManager *g_p_CpustatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_cpu.cpp";
constexpr const char *kSystemKey = "system_all";

long g_ticks_per_s = 100; // set once by sysstat_cpu_init, before any reader

constexpr uint64_t T_CPU_STAT::*kSummed[] = {
    &T_CPU_STAT::cpu_user,   &T_CPU_STAT::cpu_nice,       &T_CPU_STAT::cpu_sys,     &T_CPU_STAT::cpu_idle,
    &T_CPU_STAT::cpu_iowait, &T_CPU_STAT::cpu_steal,      &T_CPU_STAT::cpu_hardirq, &T_CPU_STAT::cpu_softirq,
    &T_CPU_STAT::cpu_guest,  &T_CPU_STAT::cpu_guest_nice, &T_CPU_STAT::cpu_uptime,  &T_CPU_STAT::inv_ms,
};

/* Percentages of the machine's time. Nice and guest time count in the whole only.
 * No time at all gives not-a-number, told as such. */
double share(const T_CPU_STAT &d, uint64_t part)
{
    return 100.0 * static_cast<double>(part) / static_cast<double>(d.cpu_uptime);
}

/* Percentages of one core. */
double load(const T_CPU_STAT &d, uint64_t ticks)
{
    const double seconds = static_cast<double>(d.inv_ms) / 1000.0;
    return static_cast<double>(ticks) / seconds * 100.0 / static_cast<double>(g_ticks_per_s);
}

std::string user_share(const T_CPU_STAT &d)
{
    return figure_fixed(share(d, d.cpu_user), 1);
}
std::string sys_share(const T_CPU_STAT &d)
{
    return figure_fixed(share(d, d.cpu_sys + d.cpu_softirq + d.cpu_hardirq), 1);
}
std::string iowait_share(const T_CPU_STAT &d)
{
    return figure_fixed(share(d, d.cpu_iowait), 1);
}
std::string steal_share(const T_CPU_STAT &d)
{
    return figure_fixed(share(d, d.cpu_steal), 1);
}
std::string idle_share(const T_CPU_STAT &d)
{
    return figure_fixed(share(d, d.cpu_idle), 1);
}
std::string total_load(const T_CPU_STAT &d)
{
    return figure_fixed(load(d, d.cpu_user) + load(d, d.cpu_sys), 1);
}
std::string user_load(const T_CPU_STAT &d)
{
    return figure_fixed(load(d, d.cpu_user), 1);
}
std::string sys_load(const T_CPU_STAT &d)
{
    return figure_fixed(load(d, d.cpu_sys), 1);
}

using T_CPU_FIGURE = T_FIGURE<T_CPU_STAT>;
using T_CPU_FIGURES = T_FIGURES<T_CPU_STAT>;

/* What is told of a key: in answers, in the dump, in the print. */
constexpr T_CPU_FIGURE kSystemAnswer[] = {{"user_pcnt", user_share},
                                          {"sys_pcnt", sys_share},
                                          {"iowait_pcnt", iowait_share},
                                          {"steal_pcnt", steal_share},
                                          {"idle_pcnt", idle_share}};
constexpr T_CPU_FIGURE kProcessAnswer[] = {
    {"total_pcnt", total_load}, {"user_pcnt", user_load}, {"sys_pcnt", sys_load}};
constexpr T_CPU_FIGURE kSystemRows[] = {{"time_stamp(ms)", figure_u64<&T_CPU_STAT::tp_ms>},
                                        {"user", user_share},
                                        {"system", sys_share},
                                        {"iowait", iowait_share},
                                        {"steal", steal_share},
                                        {"idle", idle_share}};
constexpr T_CPU_FIGURE kProcessRows[] = {{"time_stamp(ms)", figure_u64<&T_CPU_STAT::tp_ms>},
                                         {"total", total_load},
                                         {"user", user_load},
                                         {"system", sys_load}};
constexpr T_CPU_FIGURE kSystemPrint[] = {{"type          = ", [](const T_CPU_STAT &) { return std::string("system"); }},
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
constexpr T_CPU_FIGURE kProcessPrint[] = {
    {"type          = ", [](const T_CPU_STAT &) { return std::string("daemon"); }},
    {"name          = ", [](const T_CPU_STAT &d) { return d.name; }},
    {"utime         =", figure_u64<&T_CPU_STAT::cpu_user>},
    {"stime         =", figure_u64<&T_CPU_STAT::cpu_sys>},
    {"inv_ms        =", figure_i64<&T_CPU_STAT::inv_ms>},
    {"tp_ms         =", figure_u64<&T_CPU_STAT::tp_ms>}};

T_CPU_FIGURES answer_of(const std::string &key)
{
    return is_daemon_name(key) ? T_CPU_FIGURES(kProcessAnswer) : T_CPU_FIGURES(kSystemAnswer);
}

constexpr T_STAT_METHOD kMethods[] = {
    {"cur_data", false,
     [](const std::string &key, int) { return stat_object(answer_of(key), g_p_CpustatManager->get_current(key)); }},
    {"avg", true,
     [](const std::string &key, int count) {
         return stat_object(answer_of(key), g_p_CpustatManager->get_total(key, count));
     }},
    {"line_data", false,
     [](const std::string &key, int) { return stat_series(answer_of(key), g_p_CpustatManager->copy_history(key)); }},
};

void sample_system()
{
    std::string text;
    if (proc_read(host_path("/proc/stat").c_str(), &text) != 0)
        return;
    const uint64_t now_ms = current_time_stamp();
    std::string key;
    for (std::string_view rest = text, line = text_next_line(&rest, 8192); !line.empty();
         line = text_next_line(&rest, 8192)) {
        T_CPU_STAT stat;
        if (!cpu_line_parse(line, &key, &stat))
            continue;
        stat.inv_ms = stat.tp_ms = now_ms;
        g_p_CpustatManager->add_sample(key, stat);
    }
}

void sample_processes()
{
    const uint64_t now_ms = current_time_stamp();
    const T_PROCESS_SCAN *scan = process_scan_new();
    if (scan == nullptr)
        return;
    T_CPU_SLOTS slots;
    cpu_read_slots(*scan, &slots);
    T_CPU_STAT stat;
    stat.type = 1;
    stat.inv_ms = stat.tp_ms = now_ms;
    for (size_t row = 0; row < kProcessTable.size(); ++row) {
        stat.cpu_user = slots.user[row];
        stat.cpu_sys = slots.sys[row];
        stat.name = kProcessTable[row];
        g_p_CpustatManager->add_sample(stat.name, stat);
    }
}

void dump_entity(std::string *text, const std::string &key, T_CPU_FIGURES rows)
{
    text->append(key).push_back('\n');
    stat_rows(text, rows, g_p_CpustatManager->copy_history(key).value_or(std::deque<T_CPU_STAT>()));
    text->push_back('\n');
}

void print_record(const T_CPU_STAT &stat)
{
    stat_print(stat.type == 0 ? T_CPU_FIGURES(kSystemPrint) : T_CPU_FIGURES(kProcessPrint), stat);
}

} // namespace

/* --- Record and manager ---------------------------------------------------- */

T_CPU_STAT T_CPU_STAT::difference(const T_CPU_STAT &older) const
{
    T_CPU_STAT result = *this;
    for (const auto field : kSummed)
        result.*field -= older.*field;
    return result;
}

void T_CPU_STAT::add(const T_CPU_STAT &element)
{
    for (const auto field : kSummed)
        this->*field += element.*field;
    type = element.type;
    name = element.name;
}

void T_CPU_STAT::subtract(const T_CPU_STAT &element)
{
    for (const auto field : kSummed)
        this->*field -= element.*field;
    type = element.type;
    name = element.name;
}

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
    tell("%s:%s(%d)smp_num_cpus=[%d]\n", kSource, "init_map", 46, m_online_cores);
    track(kSystemKey);
    for (int core = 0; core < m_online_cores; ++core)
        track("cpu" + std::to_string(core));
    for (const char *name : kProcessTable)
        track(name);
}

/* --- Sampling -------------------------------------------------------------- */

bool cpu_line_parse(std::string_view line, std::string *key, T_CPU_STAT *stat)
{
    if (!line.starts_with("cpu"))
        return false;
    std::string_view rest;
    if (line.starts_with("cpu ")) {
        rest = line.substr(std::min<size_t>(line.size(), 5));
        *key = kSystemKey;
    } else {
        rest = line.substr(3);
        uint64_t core = 0;
        if (!text_next_u64(&rest, &core))
            return false;
        *key = "cpu" + std::to_string(static_cast<int>(core));
    }
    *stat = {};
    uint64_t *const columns[] = {&stat->cpu_user,   &stat->cpu_nice,      &stat->cpu_sys,     &stat->cpu_idle,
                                 &stat->cpu_iowait, &stat->cpu_hardirq,   &stat->cpu_softirq, &stat->cpu_steal,
                                 &stat->cpu_guest,  &stat->cpu_guest_nice};
    for (uint64_t *column : columns) {
        if (!text_next_u64(&rest, column))
            break;
    }
    stat->cpu_uptime = stat->cpu_user + stat->cpu_nice + stat->cpu_sys + stat->cpu_idle + stat->cpu_iowait +
                       stat->cpu_hardirq + stat->cpu_softirq + stat->cpu_steal;
    return true;
}

void cpu_read_slots(const T_PROCESS_SCAN &scan, T_CPU_SLOTS *slots)
{
    *slots = {};
    size_t found = 0;
    for (const T_TABLE_PROCESS &process : scan.processes) {
        /* The first process of a name that has used any user time holds the slot. */
        if (slots->user[process.row] != 0)
            continue;
        char text[1023];
        const int length = proc_read_at(scan.proc.get(), (process.pid + "/stat").c_str(), text, sizeof(text));
        uint64_t fields[kProcStatFields];
        if (length <= 0 || proc_stat_parse({text, static_cast<size_t>(length)}, fields) != 0)
            continue;
        slots->user[process.row] = fields[14] + fields[16]; // utime, cutime
        slots->sys[process.row] = fields[15] + fields[17];  // stime, cstime
        if (++found == kProcessTable.size())
            break;
    }
}

int sysstat_cpu_sample()
{
    if (g_p_CpustatManager == nullptr)
        return 0;
    sample_system();
    sample_processes();
    return 0;
}

/* --- Lifecycle, queries, dump ---------------------------------------------- */

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
    trace(kSource, "sysstat_cpu_uninit", 802);
    delete g_p_CpustatManager;
    g_p_CpustatManager = nullptr;
    return 0;
}

int sysstat_cpu_proc(const char *method, const char *type, const char *name, json_object **out)
{
    int result = query_head(method, name, g_p_CpustatManager, "g_p_CpustatManager");
    if (result == kQueryWrongArgs)
        return result;
    if (result == kQueryOk)
        result = stat_answer(kMethods, method, type, name, out);
    if (result == kQueryOk || result == kQueryBadCount)
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
        for (const auto &[key, entry] : g_p_CpustatManager->entries()) {
            if (!is_daemon_name(key))
                json_append_text(cores.get(), key);
        }
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
    for (const auto &[key, entry] : g_p_CpustatManager->entries()) {
        if (!is_daemon_name(key))
            dump_entity(&text, key, kSystemRows);
    }
    text += "__daemon_list\n";
    for (const char *name : kProcessTable)
        dump_entity(&text, name, kProcessRows);
    csv_write(folder, "cpu_stats.csv", text);
    return 0;
}

int sysstat_cpu_print()
{
    if (g_p_CpustatManager == nullptr)
        return 0;
    tell("get_total 15min\n");
    print_record(g_p_CpustatManager->get_total(kSystemKey, 0));
    tell("get_total 10sec\n");
    print_record(g_p_CpustatManager->get_total(kSystemKey, 1));
    return 0;
}
