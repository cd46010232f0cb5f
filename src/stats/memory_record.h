#pragma once

#include <cstdint>
#include <string_view>

#include "stats/process_scan.h"
#include "stats/process_table.h"
#include "stats/zfs_arc.h"

/* The record of the memory statistics: how it is read, and what is computed from it. */

/* One reading, or an interval, or a sum of intervals. In an interval the sizes are
 * those of its end and the faults those that happened in it. Sizes are in kB. A
 * process uses four of the fields, three of them under other names (below), and
 * leaves the rest 0. */
struct T_MEMORY_STAT {
    uint64_t MemTotal = 0; // of a process: VmSize
    uint64_t MemUsed = 0;
    uint64_t MemFree = 0;      // with what the ZFS cache would give back
    uint64_t MemAvailable = 0; // Buffers + Cached + MemFree, not the kernel's
    uint64_t Buffers = 0;
    uint64_t Cached = 0;
    uint64_t SReclaimable = 0;
    uint64_t Shmem = 0;
    uint64_t SwapTotal = 0;
    uint64_t SwapFree = 0;
    uint64_t VmRSS = 0;
    uint64_t pgmajfault = 0;    // of a process: maj_flt
    uint64_t pgfault = 0;       // of a process: min_flt
    uint64_t zfs_mem_cache = 0; // what the ZFS cache would not give back
    uint64_t tp_ms = 0;         // wall clock of the (newer) reading; not summed
    int32_t data_cnt = 0;       // intervals summed; of a reading 0
    int32_t type = 0;           // 0 system, 1 process
    std::string_view name;      // of the process, in the process table

    T_MEMORY_STAT difference(const T_MEMORY_STAT &older) const; // an interval
    void add(const T_MEMORY_STAT &element);
    void subtract(const T_MEMORY_STAT &element);
};
inline constexpr auto kVmSize = &T_MEMORY_STAT::MemTotal;
inline constexpr auto kMajFlt = &T_MEMORY_STAT::pgmajfault;
inline constexpr auto kMinFlt = &T_MEMORY_STAT::pgfault;

/* The machine's memory: the nine figures of /proc/meminfo, MemAvailable being the
 * kernel's, and the two of /proc/vmstat; missing ones 0. */
T_MEMORY_STAT memory_parse(std::string_view meminfo, std::string_view vmstat);

/* Computes MemFree, MemAvailable, MemUsed and zfs_mem_cache; without ZFS the share is
 * zeros. */
void memory_account(const TArcShare &arc, T_MEMORY_STAT *stat);

/* The processes of one scan, without time stamps; zeros for a row whose name no process
 * has. `page_kb` is the size of the pages in which the kernel counts the resident set. */
TTableRecords<T_MEMORY_STAT> memory_read_processes(const TProcessScan &scan, uint64_t page_kb);

/* The mean of a sum of intervals. The time stamp and the tail stay as they are. */
T_MEMORY_STAT memory_average(const T_MEMORY_STAT &sum);
