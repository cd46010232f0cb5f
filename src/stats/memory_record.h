#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "stats/process_scan.h"
#include "stats/process_table.h"
#include "stats/zfs_arc.h"

/* The record of the memory statistics, and how it comes from what the kernel
 * tells. */

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
    std::string name;           // of the process

    T_MEMORY_STAT difference(const T_MEMORY_STAT &older) const; // an interval
    void add(const T_MEMORY_STAT &element);
    void subtract(const T_MEMORY_STAT &element);
};
inline constexpr auto kVmSize = &T_MEMORY_STAT::MemTotal;
inline constexpr auto kMajFlt = &T_MEMORY_STAT::pgmajfault;
inline constexpr auto kMinFlt = &T_MEMORY_STAT::pgfault;

/* The nine figures of /proc/meminfo, MemAvailable being the kernel's, and the two of
 * /proc/vmstat; missing ones 0. The other fields stay as they are. */
void memory_parse_meminfo(std::string_view text, T_MEMORY_STAT *stat);
void memory_parse_vmstat(std::string_view text, T_MEMORY_STAT *stat);

/* Works out MemFree, MemAvailable, MemUsed and zfs_mem_cache; without ZFS the
 * share is zeros. */
void memory_account(const T_ARC_SHARE &arc, T_MEMORY_STAT *stat);

/* The mean of a sum of intervals. The time stamp and the tail stay as they are. */
T_MEMORY_STAT memory_average(const T_MEMORY_STAT &sum);

/* Figures of one scan, by row of the process table; 0 where no process bears the
 * name. `page_kb` is the size of the pages in which the kernel counts the resident
 * set. */
struct T_MEMORY_SLOTS {
    uint64_t vm_size[kProcessTable.size()] = {};
    uint64_t vm_rss[kProcessTable.size()] = {};
    uint64_t maj_flt[kProcessTable.size()] = {};
    uint64_t min_flt[kProcessTable.size()] = {};
};
void memory_read_slots(const T_PROCESS_SCAN &scan, uint64_t page_kb, T_MEMORY_SLOTS *slots);
