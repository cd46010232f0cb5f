#include "fuzz.h"

#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "base/folder.h"
#include "base/text.h"
#include "stats/cpu_record.h"
#include "stats/disk_record.h"
#include "stats/memory_record.h"
#include "stats/net_record.h"
#include "stats/proc_text.h"
#include "stats/zfs_arc.h"

namespace {

constexpr size_t kLineSize = 256; // the smallest buffer of those that take lines
constexpr size_t kNameSize = 32;

constexpr int64_t kPeriodMs = 10000;

/* Readings and what a history does with them: what is added in parts is gone when
 * they are subtracted, also where it wrapped. */
template <typename TStat> class THistory {
public:
    const TStat &take(const TStat &newer)
    {
        m_parts.push_back(newer.difference(m_last));
        m_sum.add(m_parts.back());
        m_last = newer;
        return m_sum;
    }
    TStat without_parts() const
    {
        TStat rest = m_sum;
        for (const TStat &part : m_parts)
            rest.subtract(part);
        return rest;
    }

private:
    TStat m_last, m_sum;
    std::vector<TStat> m_parts;
};

/* Lines of each kind, one reading each, a period apart. */
struct TLines {
    THistory<T_CPU_STAT> cpu;
    THistory<T_NET_STAT> net;
    THistory<T_DISK_STAT> disk;
    int64_t now_ms = 0;

    void take(std::string_view line)
    {
        now_ms += kPeriodMs;
        if (const auto parsed = cpu_line_parse(line)) {
            FUZZ_CHECK(parsed->key == "system_all" || parsed->key.starts_with("cpu"));
            cpu.take(parsed->stat);
        }
        if (auto parsed = net_line_parse(line)) {
            FUZZ_CHECK(!parsed->name.empty() && parsed->name.size() <= kNameSize);
            parsed->stat.inv_ms = static_cast<uint64_t>(now_ms);
            const T_NET_STAT sum = net.take(parsed->stat), rate = net_rate(sum);
            FUZZ_CHECK(is_rate(static_cast<double>(rate.tx), static_cast<double>(sum.tx), now_ms, 1));
        }
        if (auto parsed = disk_line_parse(line)) {
            parsed->stat.inv_ms = now_ms;
            const TDiskMetrics amounts = calc_disk_metrics(disk.take(parsed->stat), 100);
            const TDiskMetrics metrics = disk_metrics_per_second(amounts);
            FUZZ_CHECK(metrics.pctutil >= 0 && metrics.pctutil <= 100.0);
            FUZZ_CHECK(std::isfinite(metrics.rd_latency + metrics.wr_latency));
            FUZZ_CHECK(is_rate(metrics.throughput, amounts.throughput, now_ms, 0));
            FUZZ_CHECK(is_rate(metrics.rd_io, amounts.rd_io, now_ms, 0));
        }
    }
    /* Whether the rate is the amount in that time, but for what it was cut by. */
    static bool is_rate(double rate, double amount, int64_t ms, double cut)
    {
        const double exact = amount / static_cast<double>(ms) * 1000.0;
        return rate >= exact - cut - exact * 1e-9 && rate <= exact + exact * 1e-9;
    }
    void end() const
    {
        const T_CPU_STAT no_cpu = cpu.without_parts();
        FUZZ_CHECK((no_cpu.cpu_user | no_cpu.cpu_guest_nice | no_cpu.cpu_uptime) == 0);
        const T_NET_STAT no_net = net.without_parts();
        FUZZ_CHECK((no_net.tx | no_net.rx | no_net.inv_ms) == 0);
        const T_DISK_STAT no_disk = disk.without_parts();
        FUZZ_CHECK((no_disk.rd_sec | no_disk.wr_ticks | no_disk.rq_ticks) == 0 && no_disk.inv_ms == 0);
    }
};

/* A folder of our own, gone with the process. */
struct TFolder {
    std::string name = (std::filesystem::temp_directory_path() / "velomond_fuzz_XXXXXX").string();
    TFolder()
    {
        FUZZ_CHECK(mkdtemp(name.data()) != nullptr);
        std::filesystem::create_directory(name + "/1");
    }
    ~TFolder() { std::filesystem::remove_all(name); }
    TFolder(const TFolder &) = delete;
    TFolder &operator=(const TFolder &) = delete;
};

/* The text as the "stat" and the "statm" of two processes of one name. */
void take_process(std::string_view text, const std::optional<TProcStat> &fields)
{
    static const TFolder holder;
    const std::string &folder = holder.name;
    for (const char *name : {"/1/stat", "/1/statm"})
        std::ofstream(folder + name) << text;
    TProcessScan scan;
    scan.proc = TFd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    scan.processes = {{"1", 3}, {"2", 5}};
    const auto cpu = cpu_read_processes(scan);
    const auto memory = memory_read_processes(scan, 4);
    constexpr size_t kStatRead = 1023;
    if (text.size() <= kStatRead) {
        FUZZ_CHECK(cpu[3].cpu_user == (fields ? fields->at(14) + fields->at(16) : 0));
        FUZZ_CHECK(memory[3].VmRSS == (fields ? 4 * fields->at(24) : 0));
    }
    FUZZ_CHECK(memory[3].*kVmSize % 4 == 0 && (cpu[5].cpu_user | cpu[4].cpu_sys | memory[5].*kVmSize) == 0);
}

void take_arc(std::string_view text)
{
    std::string copy(text);
    const std::unique_ptr<FILE, int (*)(FILE *)> stream(fmemopen(copy.data(), copy.size(), "r"), fclose);
    const TArc arc = stream != nullptr ? zfs_arc_parse(stream.get()) : TArc();
    FUZZ_CHECK(arc.is_complete || arc.min_kb == 0);
    T_MEMORY_STAT memory = memory_parse(text, text);
    memory_account(zfs_arc_share(arc), &memory);
    THistory<T_MEMORY_STAT> history;
    memory_average(history.take(memory));
    FUZZ_CHECK(history.take(T_MEMORY_STAT()).data_cnt == 2 && history.without_parts().MemFree == 0);
}

} // namespace

/* The kernel's files: all lines of a text go to all parsers of lines, all of it to all
 * parsers of whole files. */
void fuzz_one(std::string_view text)
{
    TLines lines;
    std::string seen;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = text_next_line(&rest, kLineSize);
        FUZZ_CHECK(!line.empty() && line.size() < kLineSize);
        lines.take(line);
        seen += line;
    }
    FUZZ_CHECK(seen == text);
    lines.end();

    const auto fields = proc_stat_parse(text);
    FUZZ_CHECK(fields.has_value() == (text.find(')') != std::string_view::npos));
    take_process(text, fields);
    take_arc(text);
}
