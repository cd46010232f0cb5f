#include "stats/memory_record.h"

#include <algorithm>
#include <span>

#include "stats/proc_text.h"
#include "stats/record_sums.h"

namespace {

using TSums = TRecordSums<&T_MEMORY_STAT::MemTotal, &T_MEMORY_STAT::MemUsed, &T_MEMORY_STAT::MemFree,
                          &T_MEMORY_STAT::MemAvailable, &T_MEMORY_STAT::Buffers, &T_MEMORY_STAT::Cached,
                          &T_MEMORY_STAT::SReclaimable, &T_MEMORY_STAT::Shmem, &T_MEMORY_STAT::SwapTotal,
                          &T_MEMORY_STAT::SwapFree, &T_MEMORY_STAT::VmRSS, &T_MEMORY_STAT::pgmajfault,
                          &T_MEMORY_STAT::pgfault, &T_MEMORY_STAT::zfs_mem_cache>;

/* Names of the kernel, and where their values go. */
struct TSource {
    std::string_view name;
    uint64_t T_MEMORY_STAT::*field;
};
constexpr TSource kMeminfo[] = {
    {"MemTotal", &T_MEMORY_STAT::MemTotal},
    {"MemFree", &T_MEMORY_STAT::MemFree},
    {"MemAvailable", &T_MEMORY_STAT::MemAvailable},
    {"Buffers", &T_MEMORY_STAT::Buffers},
    {"Cached", &T_MEMORY_STAT::Cached},
    {"SReclaimable", &T_MEMORY_STAT::SReclaimable},
    {"Shmem", &T_MEMORY_STAT::Shmem},
    {"SwapTotal", &T_MEMORY_STAT::SwapTotal},
    {"SwapFree", &T_MEMORY_STAT::SwapFree},
};
constexpr TSource kVmstat[] = {{"pgmajfault", &T_MEMORY_STAT::pgmajfault}, {"pgfault", &T_MEMORY_STAT::pgfault}};

/* As "%[^:]: %10llu kB": a line without a colon is a name as a whole. */
std::string_view split_meminfo(std::string_view *line)
{
    constexpr size_t kDigits = 10;
    const std::string_view name = line->substr(0, line->find(':'));
    line->remove_prefix(std::min(name.size() + 1, line->size()));
    line->remove_prefix(std::min(line->find_first_not_of(" \t\n\v\f\r"), line->size()));
    *line = line->substr(0, kDigits);
    return name;
}

/* Stores the values of the lines whose names are sources, until there were as many.
 * `split` takes the name off a line and leaves its value. */
void parse(std::string_view text, std::span<const TSource> sources, std::string_view (*split)(std::string_view *line),
           T_MEMORY_STAT *stat)
{
    constexpr size_t kLine = 256;
    size_t matched = 0;
    for (std::string_view line; !(line = text_next_line(&text, kLine)).empty();) {
        const std::string_view name = split(&line);
        const auto source =
            std::find_if(sources.begin(), sources.end(), [name](const auto &one) { return one.name == name; });
        if (source == sources.end())
            continue;
        uint64_t value = 0;
        text_next_u64(&line, &value);
        stat->*source->field = value;
        if (++matched == sources.size())
            return;
    }
}

} // namespace

T_MEMORY_STAT T_MEMORY_STAT::difference(const T_MEMORY_STAT &older) const
{
    T_MEMORY_STAT interval = *this;
    interval.pgmajfault -= older.pgmajfault;
    interval.pgfault -= older.pgfault;
    interval.data_cnt = 1;
    return interval;
}

void T_MEMORY_STAT::add(const T_MEMORY_STAT &element)
{
    TSums::add(this, element);
    data_cnt += element.data_cnt;
    type = element.type;
    name = element.name;
}

void T_MEMORY_STAT::subtract(const T_MEMORY_STAT &element)
{
    TSums::subtract(this, element);
    data_cnt -= element.data_cnt;
    type = element.type;
    name = element.name;
}

T_MEMORY_STAT memory_average(const T_MEMORY_STAT &sum)
{
    T_MEMORY_STAT mean = sum;
    TSums::divide(&mean, static_cast<uint64_t>(sum.data_cnt == 0 ? 1 : sum.data_cnt));
    return mean;
}

T_MEMORY_STAT memory_parse(std::string_view meminfo, std::string_view vmstat)
{
    T_MEMORY_STAT stat;
    parse(meminfo, kMeminfo, split_meminfo, &stat);
    parse(vmstat, kVmstat, text_next_word, &stat);
    return stat;
}

void memory_account(const TArcShare &arc, T_MEMORY_STAT *stat)
{
    stat->zfs_mem_cache = arc.cache_kb;
    stat->MemFree += arc.reclaimable_kb;
    stat->MemAvailable = stat->Buffers + stat->Cached + stat->MemFree;
    stat->MemUsed = stat->MemAvailable <= stat->MemTotal ? stat->MemTotal - stat->MemAvailable : 0;
}

TTableRecords<T_MEMORY_STAT> memory_read_processes(const TProcessScan &scan, uint64_t page_kb)
{
    /* The first process of a name that has any size holds the row. */
    return process_records(scan, kVmSize, [&](const std::string &pid, T_MEMORY_STAT *record) {
        constexpr uint64_t kSizePageKb = 4; // readers of VmSize count on it, whatever pages the kernel has
        char buffer[128];
        std::string_view statm = proc_read_at(scan.proc.get(), pid + "/statm", buffer);
        uint64_t pages = 0;
        text_next_u64(&statm, &pages);
        record->*kVmSize = pages * kSizePageKb;

        const auto stat = proc_stat_read(scan.proc.get(), pid);
        if (!stat)
            return false;
        record->VmRSS = (*stat)[kResidentPages] * page_kb;
        /* The faults of its reaped children, cminflt and cmajflt, not its own. */
        record->*kMinFlt = (*stat)[kChildrenMinorFaults];
        record->*kMajFlt = (*stat)[kChildrenMajorFaults];
        return true;
    });
}
