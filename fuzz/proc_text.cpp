#include "fuzz.h"

#include <cmath>
#include <memory>
#include <string>

#include "stats/memory_record.h"
#include "stats/proc_text.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_net.h"
#include "stats/zfs_arc.h"

namespace {

constexpr size_t kLineSize = 256; // the smallest buffer of those that take lines
constexpr size_t kNameSize = 32;

/* Two readings and what the histories do with them. */
template <typename TStat> TStat interval(const TStat &older, const TStat &newer)
{
    TStat sum = newer.difference(older);
    sum.add(sum);
    sum.subtract(newer);
    return sum;
}

/* Lines of each kind, each beside the one before. */
struct T_LINES {
    T_CPU_STAT cpu;
    T_NET_STAT net;
    T_DISK_LINE disk;

    void take(std::string_view line)
    {
        std::string name;
        T_CPU_STAT cpu_now;
        if (cpu_line_parse(line, &name, &cpu_now)) {
            FUZZ_CHECK(name == "system_all" || name.starts_with("cpu"));
            interval(cpu, cpu_now);
            cpu = cpu_now;
        }
        T_NET_STAT net_now;
        if (net_line_parse(line, &name, &net_now)) {
            FUZZ_CHECK(!name.empty() && name.size() <= kNameSize);
            net_rate(interval(net, net_now));
            net = net_now;
        }
        T_DISK_LINE disk_now;
        if (disk_line_parse(line, &disk_now)) {
            T_DISK_METRICS metrics = calc_disk_metrics(interval(disk.stat, disk_now.stat), 100);
            disk_metrics_per_second(&metrics);
            FUZZ_CHECK(!(metrics.pctutil > 100.0) && std::isfinite(metrics.rd_latency + metrics.wr_latency));
            disk = disk_now;
        }
    }
};

void take_arc(std::string_view text)
{
    std::string copy(text);
    const std::unique_ptr<FILE, int (*)(FILE *)> stream(fmemopen(copy.data(), copy.size(), "r"), fclose);
    T_ARC arc;
    if (stream != nullptr && !zfs_arc_parse(stream.get(), &arc))
        FUZZ_CHECK(arc.min_kb == 0);
    T_MEMORY_STAT memory;
    memory_parse_meminfo(text, &memory);
    memory_parse_vmstat(text, &memory);
    memory_account(zfs_arc_share(arc), &memory);
    memory_average(interval(T_MEMORY_STAT(), memory));
}

} // namespace

/* The kernel's files: all lines of a text to all who read lines, all of it to all
 * who read whole files. */
void fuzz_one(std::string_view text)
{
    T_LINES lines;
    std::string seen;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = proc_next_line(&rest, kLineSize);
        FUZZ_CHECK(!line.empty() && line.size() < kLineSize);
        lines.take(line);
        seen += line;
    }
    FUZZ_CHECK(seen == text);

    uint64_t fields[kProcStatFields];
    if (proc_stat_parse(text, fields) != 0)
        FUZZ_CHECK(text.find(')') == std::string_view::npos);
    take_arc(text);
}
