#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "stats/process_scan.h"
#include "stats/process_table.h"

/* The record of the CPU statistics: how it is read, and what is computed from it. */

inline constexpr const char *kCpuSystemKey = "system_all";

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
    uint64_t cpu_uptime = 0; // all of the above but the guests, which are in user and nice already
    /* Raw: when it was read; else the length of the interval, in unsigned arithmetic
     * like the counters. It is wall-clock time. A clock set back within an interval
     * makes the length wrap to nearly 2^64 ms, and the percentages of the processes
     * read 0.0 for it. A sum that includes it is too short by as much as the clock went
     * back, so its percentages are too high, or wraps as well, and they read 0.0; until
     * the interval leaves the history, 15 minutes later. Shares of the machine and of
     * cores are of counters alone and stay right. */
    uint64_t inv_ms = 0;
    uint64_t tp_ms = 0;    // wall clock of the (newer) reading; not summed
    int32_t type = 0;      // 0 system, 1 process
    std::string_view name; // of the process, in the process table

    T_CPU_STAT difference(const T_CPU_STAT &older) const;
    void add(const T_CPU_STAT &element);
    void subtract(const T_CPU_STAT &element);
};

/* A "cpu" line of /proc/stat: its key and its counters, missing ones 0. Nothing for
 * any other line. */
struct TCpuLine {
    std::string key;
    T_CPU_STAT stat;
};
std::optional<TCpuLine> cpu_line_parse(std::string_view line);

/* The processes of one scan, without times; zeros for a row whose name no process has. */
TTableRecords<T_CPU_STAT> cpu_read_processes(const TProcessScan &scan);

/* Percentages: of the machine's or a core's time, or of one core's that a process took. */
struct TCpuPercent {
    double total = 0; // of a process: user + sys
    double user = 0;
    double sys = 0;
    double iowait = 0; // from here on of the machine and its cores
    double steal = 0;
    double idle = 0;
};
/* Nice and guest time count in the whole only. Not-a-number where no time has passed. */
TCpuPercent cpu_percent_of_system(const T_CPU_STAT &stat);
TCpuPercent cpu_percent_of_process(const T_CPU_STAT &stat, long ticks_per_s);
