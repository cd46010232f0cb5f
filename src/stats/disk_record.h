#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/* The record of the disk I/O statistics: how it is read, and what is computed from it. */

/* One reading, or the difference of two, or a sum of differences. */
struct T_DISK_STAT {
    uint64_t rd_ios = 0;
    uint64_t rd_sec = 0;   // of 512 bytes
    uint64_t rd_ticks = 0; // ms
    uint64_t wr_ios = 0;
    uint64_t wr_sec = 0;
    uint64_t wr_ticks = 0;
    uint32_t rq_ticks = 0; // ms, weighted by the requests under way
    int64_t inv_ms = 0;    // raw: when it was read; else the length of the interval
    int64_t tp_ms = 0;     // wall clock of the (newer) reading; not summed

    T_DISK_STAT difference(const T_DISK_STAT &older) const;
    void add(const T_DISK_STAT &element);
    void subtract(const T_DISK_STAT &element);
};

/* One line of /proc/diskstats; nothing when it does not have all of the fourteen
 * columns that every kernel writes. */
struct TDiskLine {
    uint32_t major = 0;
    uint32_t minor = 0;
    T_DISK_STAT stat; // without times
};
std::optional<TDiskLine> disk_line_parse(std::string_view line);

/* The device path of a key: what comes before its first blank. */
std::string disk_path_of_key(const std::string &key);

struct TDiskMetrics {
    double throughput; // kB
    double rd_latency; // ms per read
    double wr_latency;
    double rd_io;
    double wr_io;
    double queue;
    double pctutil; // at most 100.0; not a plain percentage
    int64_t inv_ms;
    int64_t tp_ms;
};
TDiskMetrics calc_disk_metrics(const T_DISK_STAT &sum, long ticks_per_s);

/* With amounts per second in place of amounts, where any time has passed. */
TDiskMetrics disk_metrics_per_second(const TDiskMetrics &amounts);
