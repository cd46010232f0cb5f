#include "stats/sysstat_cpu.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <span>
#include <unistd.h>

#include "common/debug_log.h"
#include "common/query.h"
#include "common/text.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"
#include "stats/proc_text.h"
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

/* What is told of a record, in the order in which it is told. */
struct T_FIGURE {
    const char *json_key;
    const char *csv_label;
};
constexpr T_FIGURE kSystemFigures[] = {{"user_pcnt", "user"},
                                       {"sys_pcnt", "system"},
                                       {"iowait_pcnt", "iowait"},
                                       {"steal_pcnt", "steal"},
                                       {"idle_pcnt", "idle"}};
constexpr T_FIGURE kProcessFigures[] = {{"total_pcnt", "total"}, {"user_pcnt", "user"}, {"sys_pcnt", "system"}};
using T_PERCENTAGES = std::array<double, std::size(kSystemFigures)>;

std::span<const T_FIGURE> figures_of(bool is_process)
{
    return is_process ? std::span<const T_FIGURE>(kProcessFigures) : std::span<const T_FIGURE>(kSystemFigures);
}

/* Percentages of the machine's time. Nice and guest time count in the whole only.
 * No time at all gives not-a-number, told as such. */
T_PERCENTAGES system_percentages(const T_CPU_STAT &d)
{
    const auto share = [&d](uint64_t part) {
        return 100.0 * static_cast<double>(part) / static_cast<double>(d.cpu_uptime);
    };
    return {share(d.cpu_user), share(d.cpu_sys + d.cpu_softirq + d.cpu_hardirq), share(d.cpu_iowait),
            share(d.cpu_steal), share(d.cpu_idle)};
}

/* Percentages of one core. */
T_PERCENTAGES process_percentages(const T_CPU_STAT &d)
{
    const double seconds = static_cast<double>(d.inv_ms) / 1000.0;
    const auto ticks_per_s = static_cast<double>(g_ticks_per_s);
    const double user = static_cast<double>(d.cpu_user) / seconds * 100.0 / ticks_per_s;
    const double sys = static_cast<double>(d.cpu_sys) / seconds * 100.0 / ticks_per_s;
    return {user + sys, user, sys};
}

T_PERCENTAGES percentages_of(const T_CPU_STAT &d, bool is_process)
{
    return is_process ? process_percentages(d) : system_percentages(d);
}

TJson percentage_text(double value)
{
    char text[328];
    snprintf(text, sizeof(text), "%.1f", value);
    return TJson(json_object_new_string(text));
}

TJson percentages_object(const T_CPU_STAT &d, bool is_process)
{
    TJson object(json_object_new_object());
    const T_PERCENTAGES values = percentages_of(d, is_process);
    size_t i = 0;
    for (const T_FIGURE &figure : figures_of(is_process))
        json_give(object.get(), figure.json_key, percentage_text(values[i++]));
    return object;
}

TJson series_object(const std::string &key, bool is_process)
{
    TJson object(json_object_new_object());
    std::array<json_object *, std::size(kSystemFigures)> arrays = {}; // lent by the object
    size_t i = 0;
    for (const T_FIGURE &figure : figures_of(is_process)) {
        TJson array(json_object_new_array());
        arrays[i++] = array.get();
        json_give(object.get(), figure.json_key, std::move(array));
    }
    const auto history = g_p_CpustatManager->copy_history(key);
    if (!history)
        return object;
    stat_per_minute(*history, [&](const T_CPU_STAT &minute) {
        const T_PERCENTAGES values = percentages_of(minute, is_process);
        for (size_t figure = 0; figure < i; ++figure)
            json_append(arrays[figure], percentage_text(values[figure]));
    });
    return object;
}

void sample_system()
{
    std::string text;
    if (proc_read(host_path("/proc/stat").c_str(), &text) != 0)
        return;
    const uint64_t now_ms = current_time_stamp();
    std::string key;
    for (std::string_view rest = text, line = proc_next_line(&rest, 8192); !line.empty();
         line = proc_next_line(&rest, 8192)) {
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

void dump_entity(std::string *text, const std::string &key, bool is_process)
{
    text->append(key).push_back('\n');
    const auto history = g_p_CpustatManager->copy_history(key).value_or(std::deque<T_CPU_STAT>());
    csv_row_u64(text, "time_stamp(ms)", history, [](const T_CPU_STAT &d) { return d.tp_ms; });
    size_t i = 0;
    for (const T_FIGURE &figure : figures_of(is_process)) {
        csv_row_1f(text, figure.csv_label, history,
                   [&](const T_CPU_STAT &d) { return percentages_of(d, is_process)[i]; });
        ++i;
    }
    text->push_back('\n');
}

void print_record(const T_CPU_STAT &stat)
{
    if (stat.type == 0) {
        tell("    type          = system\n");
        tell("    cpu_user      =%" PRIu64 "\n", stat.cpu_user);
        tell("    cpu_nice      =%" PRIu64 "\n", stat.cpu_nice);
        tell("    cpu_sys       =%" PRIu64 "\n", stat.cpu_sys);
        tell("    cpu_idle      =%" PRIu64 "\n", stat.cpu_idle);
        tell("    cpu_iowait    =%" PRIu64 "\n", stat.cpu_iowait);
        tell("    cpu_steal     =%" PRIu64 "\n", stat.cpu_steal);
        tell("    cpu_hardirq   =%" PRIu64 "\n", stat.cpu_hardirq);
        tell("    cpu_softirq   =%" PRIi64 "\n", static_cast<int64_t>(stat.cpu_softirq));
        tell("    cpu_guest     =%" PRIi64 "\n", static_cast<int64_t>(stat.cpu_guest));
        tell("    cpu_guest_nice=%" PRIi64 "\n", static_cast<int64_t>(stat.cpu_guest_nice));
        tell("    cpu_uptime    =%" PRIi64 "\n", static_cast<int64_t>(stat.cpu_uptime));
    } else {
        tell("    type          = daemon\n");
        tell("    name          = %s\n", stat.name.c_str());
        tell("    utime         =%" PRIu64 "\n", stat.cpu_user);
        tell("    stime         =%" PRIu64 "\n", stat.cpu_sys);
    }
    tell("    inv_ms        =%" PRIi64 "\n", static_cast<int64_t>(stat.inv_ms));
    tell("    tp_ms         =%" PRIu64 "\n", stat.tp_ms);
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
    if (result == kQueryOk) {
        const bool is_process = is_daemon_name(name);
        if (query_is(method, "cur_data")) {
            *out = percentages_object(g_p_CpustatManager->get_current(name), is_process).release();
            return kQueryOk;
        }
        if (query_is(method, "avg")) {
            int count = 0;
            result = query_count(type, &count);
            if (result == kQueryOk)
                *out = percentages_object(g_p_CpustatManager->get_total(name, count), is_process).release();
            return result;
        }
        if (query_is(method, "line_data")) {
            *out = series_object(name, is_process).release();
            return kQueryOk;
        }
        result = query_unknown(method);
    }
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
            dump_entity(&text, key, false);
    }
    text += "__daemon_list\n";
    for (const char *name : kProcessTable)
        dump_entity(&text, name, true);
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
