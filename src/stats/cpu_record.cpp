#include "stats/cpu_record.h"

#include "stats/proc_text.h"
#include "stats/record_sums.h"

namespace {

using TSums =
    TRecordSums<&T_CPU_STAT::cpu_user, &T_CPU_STAT::cpu_nice, &T_CPU_STAT::cpu_sys, &T_CPU_STAT::cpu_idle,
                &T_CPU_STAT::cpu_iowait, &T_CPU_STAT::cpu_steal, &T_CPU_STAT::cpu_hardirq, &T_CPU_STAT::cpu_softirq,
                &T_CPU_STAT::cpu_guest, &T_CPU_STAT::cpu_guest_nice, &T_CPU_STAT::cpu_uptime, &T_CPU_STAT::inv_ms>;

} // namespace

T_CPU_STAT T_CPU_STAT::difference(const T_CPU_STAT &older) const
{
    T_CPU_STAT interval = *this;
    TSums::subtract(&interval, older);
    return interval;
}

void T_CPU_STAT::add(const T_CPU_STAT &element)
{
    TSums::add(this, element);
    type = element.type;
    name = element.name;
}

void T_CPU_STAT::subtract(const T_CPU_STAT &element)
{
    TSums::subtract(this, element);
    type = element.type;
    name = element.name;
}

std::optional<TCpuLine> cpu_line_parse(std::string_view line)
{
    if (!line.starts_with("cpu"))
        return std::nullopt;
    TCpuLine parsed;
    if (line.starts_with("cpu ")) {
        line.remove_prefix(std::min<size_t>(line.size(), 5));
        parsed.key = kCpuSystemKey;
    } else {
        line.remove_prefix(3);
        uint64_t core = 0;
        if (!text_next_u64(&line, &core))
            return std::nullopt;
        parsed.key = "cpu" + std::to_string(static_cast<int>(core));
    }
    uint64_t columns[10] = {};
    text_next_columns(&line, columns);
    T_CPU_STAT &stat = parsed.stat;
    for (auto *column = columns;
         uint64_t * counter : {&stat.cpu_user, &stat.cpu_nice, &stat.cpu_sys, &stat.cpu_idle, &stat.cpu_iowait,
                               &stat.cpu_hardirq, &stat.cpu_softirq, &stat.cpu_steal})
        stat.cpu_uptime += *counter = *column++;
    stat.cpu_guest = columns[8];
    stat.cpu_guest_nice = columns[9];
    return parsed;
}

TTableRecords<T_CPU_STAT> cpu_read_processes(const TProcessScan &scan)
{
    /* The first process of a name that has used any user time holds the row. */
    return process_records(scan, &T_CPU_STAT::cpu_user, [&scan](const std::string &pid, T_CPU_STAT *record) {
        const auto stat = proc_stat_read(scan.proc.get(), pid);
        if (!stat)
            return false;
        record->cpu_user = (*stat)[kUserTime] + (*stat)[kChildrenUserTime];
        record->cpu_sys = (*stat)[kSystemTime] + (*stat)[kChildrenSystemTime];
        return true;
    });
}

TCpuPercent cpu_percent_of_system(const T_CPU_STAT &stat)
{
    const auto share = [&stat](uint64_t part) {
        return 100.0 * static_cast<double>(part) / static_cast<double>(stat.cpu_uptime);
    };
    return {.user = share(stat.cpu_user),
            .sys = share(stat.cpu_sys + stat.cpu_softirq + stat.cpu_hardirq),
            .iowait = share(stat.cpu_iowait),
            .steal = share(stat.cpu_steal),
            .idle = share(stat.cpu_idle)};
}

TCpuPercent cpu_percent_of_process(const T_CPU_STAT &stat, long ticks_per_s)
{
    const double seconds = static_cast<double>(stat.inv_ms) / 1000.0;
    const auto load = [&](uint64_t ticks) {
        return static_cast<double>(ticks) / seconds * 100.0 / static_cast<double>(ticks_per_s);
    };
    const double user = load(stat.cpu_user), sys = load(stat.cpu_sys);
    return {.total = user + sys, .user = user, .sys = sys};
}
