#include "stats/memory_record.h"

#include <algorithm>
#include <span>

#include "base/text.h"
#include "stats/proc_text.h"

namespace {

constexpr size_t kLine = 256;

constexpr uint64_t T_MEMORY_STAT::*kSummed[] = {
    &T_MEMORY_STAT::MemTotal,     &T_MEMORY_STAT::MemUsed,       &T_MEMORY_STAT::MemFree,
    &T_MEMORY_STAT::MemAvailable, &T_MEMORY_STAT::Buffers,       &T_MEMORY_STAT::Cached,
    &T_MEMORY_STAT::SReclaimable, &T_MEMORY_STAT::Shmem,         &T_MEMORY_STAT::SwapTotal,
    &T_MEMORY_STAT::SwapFree,     &T_MEMORY_STAT::VmRSS,         &T_MEMORY_STAT::pgmajfault,
    &T_MEMORY_STAT::pgfault,      &T_MEMORY_STAT::zfs_mem_cache,
};

/* Names of the kernel, and where their values go. */
struct T_SOURCE {
    std::string_view name;
    uint64_t T_MEMORY_STAT::*field;
};
constexpr T_SOURCE kMeminfo[] = {
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
constexpr T_SOURCE kVmstat[] = {{"pgmajfault", &T_MEMORY_STAT::pgmajfault}, {"pgfault", &T_MEMORY_STAT::pgfault}};

void clear(std::span<const T_SOURCE> sources, T_MEMORY_STAT *stat)
{
    for (const T_SOURCE &one : sources)
        stat->*one.field = 0;
}

/* Stores the value where the name says. Whether the name is one of `sources`. */
bool take(std::span<const T_SOURCE> sources, std::string_view name, uint64_t value, T_MEMORY_STAT *stat)
{
    const auto found =
        std::find_if(sources.begin(), sources.end(), [name](const auto &one) { return one.name == name; });
    if (found == sources.end())
        return false;
    stat->*found->field = value;
    return true;
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
    for (const auto field : kSummed)
        this->*field += element.*field;
    data_cnt += element.data_cnt;
    type = element.type;
    name = element.name;
}

void T_MEMORY_STAT::subtract(const T_MEMORY_STAT &element)
{
    for (const auto field : kSummed)
        this->*field -= element.*field;
    data_cnt -= element.data_cnt;
    type = element.type;
    name = element.name;
}

T_MEMORY_STAT memory_average(const T_MEMORY_STAT &sum)
{
    T_MEMORY_STAT mean = sum;
    const auto count = static_cast<uint64_t>(sum.data_cnt == 0 ? 1 : sum.data_cnt);
    for (const auto field : kSummed)
        mean.*field /= count;
    return mean;
}

void memory_parse_meminfo(std::string_view text, T_MEMORY_STAT *stat)
{
    constexpr size_t kDigits = 10;
    clear(kMeminfo, stat);
    size_t matched = 0;
    for (std::string_view line = text_next_line(&text, kLine); !line.empty() && matched < std::size(kMeminfo);
         line = text_next_line(&text, kLine)) {
        /* As "%[^:]: %10llu kB": a line without a colon is a name as a whole. */
        const std::string_view name = line.substr(0, line.find(':'));
        std::string_view rest = line.substr(std::min(name.size() + 1, line.size()));
        rest.remove_prefix(std::min(rest.find_first_not_of(" \t\n\v\f\r"), rest.size()));
        rest = rest.substr(0, kDigits);
        uint64_t value = 0;
        text_next_u64(&rest, &value);
        if (take(kMeminfo, name, value, stat))
            ++matched;
    }
}

void memory_parse_vmstat(std::string_view text, T_MEMORY_STAT *stat)
{
    clear(kVmstat, stat);
    size_t matched = 0;
    for (std::string_view line = text_next_line(&text, kLine); !line.empty() && matched < std::size(kVmstat);
         line = text_next_line(&text, kLine)) {
        const std::string_view name = text_next_word(&line);
        uint64_t value = 0;
        text_next_u64(&line, &value);
        if (take(kVmstat, name, value, stat))
            ++matched;
    }
}

void memory_account(const T_ARC_SHARE &arc, T_MEMORY_STAT *stat)
{
    stat->zfs_mem_cache = arc.cache_kb;
    stat->MemFree += arc.reclaimable_kb;
    stat->MemAvailable = stat->Buffers + stat->Cached + stat->MemFree;
    stat->MemUsed = stat->MemAvailable <= stat->MemTotal ? stat->MemTotal - stat->MemAvailable : 0;
}

void memory_read_slots(const T_PROCESS_SCAN &scan, uint64_t page_kb, T_MEMORY_SLOTS *slots)
{
    constexpr uint64_t kSizePageKb = 4; // readers of VmSize count on it, whatever pages the kernel has
    *slots = {};
    size_t found = 0;
    for (const T_TABLE_PROCESS &process : scan.processes) {
        /* The first process of a name that has any size holds the row. */
        const size_t row = process.row;
        if (slots->vm_size[row] != 0)
            continue;
        char text[1023];
        constexpr size_t kStatm = 128;
        int length = proc_read_at(scan.proc.get(), (process.pid + "/statm").c_str(), text, kStatm);
        std::string_view statm(text, static_cast<size_t>(std::max(length, 0)));
        uint64_t pages = 0;
        text_next_u64(&statm, &pages);
        slots->vm_size[row] = pages * kSizePageKb;

        length = proc_read_at(scan.proc.get(), (process.pid + "/stat").c_str(), text, sizeof(text));
        uint64_t fields[kProcStatFields];
        if (length <= 0 || proc_stat_parse({text, static_cast<size_t>(length)}, fields) != 0)
            continue;
        slots->vm_rss[row] = fields[24] * page_kb;
        /* The faults of its reaped children, cminflt and cmajflt, not its own. */
        slots->min_flt[row] = fields[11];
        slots->maj_flt[row] = fields[13];
        if (++found == kProcessTable.size())
            break;
    }
}
