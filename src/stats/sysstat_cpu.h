#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/json.h"
#include "stats/process_scan.h"
#include "stats/process_table.h"
#include "stats/statManager.h"

/* CPU time of the whole machine (key "system_all"), of each core that was online
 * at start ("cpu0", ...) and of each process of the process table (its name). */

/* One reading, or the difference of two, or a sum of differences. */
struct T_CPU_STAT {
    /* System: jiffies of /proc/stat. Process: user and system time, both with
     * those of its reaped children, in clock ticks; the others 0. */
    uint64_t cpu_user = 0;
    uint64_t cpu_nice = 0;
    uint64_t cpu_sys = 0;
    uint64_t cpu_idle = 0;
    uint64_t cpu_iowait = 0;
    uint64_t cpu_steal = 0;
    uint64_t cpu_hardirq = 0;
    uint64_t cpu_softirq = 0;
    uint64_t cpu_guest = 0;
    uint64_t cpu_guest_nice = 0;
    uint64_t cpu_uptime = 0; // all of the above but the guests, who are in user and nice already
    /* Raw: when it was read; else the length of the interval, in unsigned arithmetic
     * like the counters. It is wall-clock time. A clock set back within an interval
     * makes the length wrap to nearly 2^64 ms, and the percentages of the processes
     * read 0.0 for it. A sum that includes it is too short by as much as the clock went
     * back, so its percentages are too high, or wraps as well, and they read 0.0; until
     * the interval leaves the history, 15 minutes later. Shares of the machine and of
     * cores are of counters alone and stay right. */
    uint64_t inv_ms = 0;
    uint64_t tp_ms = 0; // wall clock of the (newer) reading; not summed
    int32_t type = 0;   // 0 system, 1 process
    std::string name;   // of the process

    T_CPU_STAT difference(const T_CPU_STAT &older) const;
    void add(const T_CPU_STAT &element);
    void subtract(const T_CPU_STAT &element);
};

class TCpustatManager : public TStatManagerBase<T_CPU_STAT> {
public:
    TCpustatManager();
    ~TCpustatManager() override;

    int online_cores() const { return m_online_cores; }

private:
    void init_map() override;

    int m_online_cores = 0;
};

/* Null while the kind is not up. Set before any reader runs, cleared after the
 * last one is gone. */
extern TCpustatManager *g_p_CpustatManager;

int sysstat_cpu_init();   // always 0
int sysstat_cpu_uninit(); // always 0; harmless without init

/* Takes one reading of everything; a step of the sampling round. Always 0. */
int sysstat_cpu_sample();

/* Answers a query: "cur_data", "avg" (type: the newest intervals, 0 all) or
 * "line_data", for one key; *out gets a new object with percentages as texts.
 * -4 without method or name, -6 for a negative type. A missing manager and an
 * unknown method are only logged: they answer 0 without an object, which callers
 * have come to rely on. */
int sysstat_cpu_proc(const char *method, const char *type, const char *name, json_object **out);

/* Adds "core_no" and "core_list" to the object at *out. 0, or -1 without one. */
int sysstat_cpu_info(json_object **out);

/* Writes "cpu_stats.csv" into a dump folder. Always 0. */
int sysstat_cpu_dump(const char *folder);

/* Prints the totals of the whole machine on standard error. Always 0. */
int sysstat_cpu_print();

/* --- Parsing and computing, for the above and for tests ------------------- */

/* One "cpu" line of /proc/stat: its key and its counters, missing ones 0. False
 * for any other line. */
bool cpu_line_parse(std::string_view line, std::string *key, T_CPU_STAT *stat);

/* User and system time of one scan, by row of the process table; 0 where no process
 * bears the name. */
struct T_CPU_SLOTS {
    uint64_t user[kProcessTable.size()] = {};
    uint64_t sys[kProcessTable.size()] = {};
};
void cpu_read_slots(const T_PROCESS_SCAN &scan, T_CPU_SLOTS *slots);
