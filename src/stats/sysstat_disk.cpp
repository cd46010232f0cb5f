#include "stats/sysstat_disk.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <memory>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "base/folder.h"
#include "base/text.h"
#include "common/query.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"
#include "platform/velomond_shm.h"
#include "stats/disk_flag.h"
#include "stats/proc_text.h"
#include "stats/stat_answer.h"
#include "stats/stat_dump.h"

TDiskstatManager *g_p_DiskstatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_disk.cpp";
constexpr const char *kBlanks = " \t\n\v\f\r"; // as the C library has them
constexpr const char *kMapperFolder = "/dev/mapper";
constexpr size_t kPathSize = 256;
constexpr size_t kLineSize = 256;
constexpr size_t kDumpKeySize = 32;

long g_ticks_per_s = 100; // set once by sysstat_disk_init, before any reader

constexpr uint64_t T_DISK_STAT::*kCounters[] = {
    &T_DISK_STAT::rd_ios, &T_DISK_STAT::rd_sec, &T_DISK_STAT::rd_ticks,
    &T_DISK_STAT::wr_ios, &T_DISK_STAT::wr_sec, &T_DISK_STAT::wr_ticks,
};

T_DISK_METRICS metrics_of(const T_DISK_STAT &sum)
{
    return calc_disk_metrics(sum, g_ticks_per_s);
}

T_DISK_METRICS metrics_per_second_of(const T_DISK_STAT &sum)
{
    T_DISK_METRICS metrics = metrics_of(sum);
    disk_metrics_per_second(&metrics);
    return metrics;
}

template <auto FIELD, int DECIMALS> std::string figure(const T_DISK_METRICS &metrics)
{
    return figure_fixed(metrics.*FIELD, DECIMALS);
}

/* What is told of a device: amounts, amounts per second, in the dump, in the print. */
using T_DISK_FIGURE = T_FIGURE<T_DISK_METRICS>;
constexpr T_DISK_FIGURE kCurrent[] = {{"throughput", figure<&T_DISK_METRICS::throughput, 0>},
                                      {"rd_latency", figure<&T_DISK_METRICS::rd_latency, 1>},
                                      {"wr_latency", figure<&T_DISK_METRICS::wr_latency, 1>},
                                      {"rd_io", figure<&T_DISK_METRICS::rd_io, 0>},
                                      {"wr_io", figure<&T_DISK_METRICS::wr_io, 0>}};
constexpr T_DISK_FIGURE kTotal[] = {kCurrent[0], kCurrent[3], kCurrent[4]};
constexpr T_DISK_FIGURE kRows[] = {
    {"time_stamp(ms)", figure_u64<&T_DISK_METRICS::tp_ms>}, {"throughput", figure<&T_DISK_METRICS::throughput, 1>},
    {"rd_latency", figure<&T_DISK_METRICS::rd_latency, 1>}, {"wr_latency", figure<&T_DISK_METRICS::wr_latency, 1>},
    {"rd_io", figure<&T_DISK_METRICS::rd_io, 1>},           {"wr_io", figure<&T_DISK_METRICS::wr_io, 1>},
    {"pctutil", figure<&T_DISK_METRICS::pctutil, 1>}};
constexpr std::span<const T_DISK_FIGURE> kPerSecond(&kRows[1], 5);
constexpr T_FIGURE<T_DISK_STAT> kPrint[] = {
    {"rd_ios  =", figure_u64<&T_DISK_STAT::rd_ios>},   {"rd_sec  =", figure_u64<&T_DISK_STAT::rd_sec>},
    {"rd_ticks=", figure_u64<&T_DISK_STAT::rd_ticks>}, {"wr_ios  =", figure_u64<&T_DISK_STAT::wr_ios>},
    {"wr_sec  =", figure_u64<&T_DISK_STAT::wr_sec>},   {"wr_ticks=", figure_u64<&T_DISK_STAT::wr_ticks>},
    {"rq_ticks=", figure_u64<&T_DISK_STAT::rq_ticks>}, {"inv_ms  =", figure_i64<&T_DISK_STAT::inv_ms>},
    {"tp_ms   =", figure_i64<&T_DISK_STAT::tp_ms>},
};

constexpr T_STAT_METHOD kMethods[] = {
    {"cur_data", false,
     [](const std::string &key, int) {
         return stat_object(kCurrent, metrics_of(g_p_DiskstatManager->get_current(key)));
     }},
    {"total", true,
     [](const std::string &key, int count) {
         return stat_object(kTotal, metrics_of(g_p_DiskstatManager->get_total(key, count)));
     }},
    {"avg", true,
     [](const std::string &key, int count) {
         return stat_object(kPerSecond, metrics_per_second_of(g_p_DiskstatManager->get_total(key, count)));
     }},
    {"line_data", false,
     [](const std::string &key, int) {
         return stat_series(kPerSecond, g_p_DiskstatManager->copy_history(key), metrics_per_second_of);
     }},
};

} // namespace

/* --- Record and manager ----------------------------------------------------- */

T_DISK_STAT T_DISK_STAT::difference(const T_DISK_STAT &older) const
{
    T_DISK_STAT result = *this;
    for (const auto counter : kCounters)
        result.*counter -= older.*counter;
    result.rq_ticks -= older.rq_ticks;
    result.inv_ms -= older.inv_ms;
    return result;
}

void T_DISK_STAT::add(const T_DISK_STAT &element)
{
    for (const auto counter : kCounters)
        this->*counter += element.*counter;
    rq_ticks += element.rq_ticks;
    inv_ms += element.inv_ms;
}

void T_DISK_STAT::subtract(const T_DISK_STAT &element)
{
    for (const auto counter : kCounters)
        this->*counter -= element.*counter;
    rq_ticks -= element.rq_ticks;
    inv_ms -= element.inv_ms;
}

TDiskstatManager::TDiskstatManager()
{
    trace("sysstat_disk.h", "TDiskstatManager", 176);
    TDiskstatManager::init_map();
}

TDiskstatManager::~TDiskstatManager()
{
    trace("sysstat_disk.h", "~TDiskstatManager", 181);
}

void TDiskstatManager::init_map()
{
    trace(kSource, "init_map", 53);
    const TFolder dir = folder_open(host_path(kMapperFolder));
    if (dir == nullptr) {
        const int error = errno;
        char buffer[128];
        tell("Cannot open %s: %s\n", kMapperFolder, strerror_r(error, buffer, sizeof(buffer)));
        return;
    }
    while (const struct dirent *entry = readdir(dir.get())) {
        const std::string path = text_format("%s/%s", kMapperFolder, entry->d_name).substr(0, kPathSize - 1);
        struct stat node = {};
        if (path.find("cachedev") == std::string::npos || stat(host_path(path).c_str(), &node) != 0)
            continue;
        const uint32_t major_number = major(node.st_rdev);
        const uint32_t minor_number = minor(node.st_rdev);
        const std::string key = text_format("%s %" PRIu32 " %" PRIu32, path.c_str(), major_number, minor_number);
        track(key);
        m_path_keys.emplace(path, key);
        m_number_keys.emplace(std::pair(major_number, minor_number), key); // the first of two names for a device
    }
}

std::string TDiskstatManager::key_of_path(const std::string &path) const
{
    const auto found = m_path_keys.find(path);
    return found != m_path_keys.end() ? found->second : "";
}

std::string TDiskstatManager::key_of_number(uint32_t major_number, uint32_t minor_number) const
{
    const auto found = m_number_keys.find({major_number, minor_number});
    return found != m_number_keys.end() ? found->second : "";
}

/* --- Sampling --------------------------------------------------------------- */

bool disk_line_parse(std::string_view line, T_DISK_LINE *parsed)
{
    /* The C library's "%u" reads a number of 64 bits and keeps the low half. */
    uint64_t numbers[2] = {}; // major, minor
    for (uint64_t &number : numbers) {
        if (!text_next_u64(&line, &number))
            return false;
    }
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    line.remove_prefix(std::min(line.find_first_of(kBlanks), line.size())); // the name

    /* Reads, merged, sectors, ms; the same of writes; under way, ms, weighted ms. */
    uint64_t columns[11] = {};
    for (uint64_t &column : columns) {
        if (!text_next_u64(&line, &column))
            return false;
    }
    parsed->major = static_cast<uint32_t>(numbers[0]);
    parsed->minor = static_cast<uint32_t>(numbers[1]);
    parsed->stat.rd_ios = columns[0];
    parsed->stat.rd_sec = columns[2];
    parsed->stat.rd_ticks = columns[3];
    parsed->stat.wr_ios = columns[4];
    parsed->stat.wr_sec = columns[6];
    parsed->stat.wr_ticks = columns[7];
    parsed->stat.rq_ticks = static_cast<uint32_t>(columns[10]);
    return true;
}

int sysstat_disk_sample()
{
    if (g_p_DiskstatManager == nullptr)
        return 0;
    const auto now_ms = static_cast<int64_t>(current_time_stamp());
    std::string text;
    if (proc_read(host_path("/proc/diskstats").c_str(), &text) != 0)
        return -1;
    for (std::string_view rest = text, line = text_next_line(&rest, kLineSize); !line.empty();
         line = text_next_line(&rest, kLineSize)) {
        T_DISK_LINE parsed;
        if (!disk_line_parse(line, &parsed))
            continue;
        parsed.stat.inv_ms = parsed.stat.tp_ms = now_ms;
        /* A device that is not followed has no entry and is refused. */
        g_p_DiskstatManager->add_sample(g_p_DiskstatManager->key_of_number(parsed.major, parsed.minor), parsed.stat);
    }
    return 0;
}

T_DISK_METRICS calc_disk_metrics(const T_DISK_STAT &sum, long ticks_per_s)
{
    constexpr uint64_t kSectorsPerKb = 2;
    constexpr uint32_t kQueueMs = 1000;
    constexpr double kMost = 100.0;
    const auto quotient = [](uint64_t ticks, uint64_t ios) {
        return ios != 0 ? static_cast<double>(ticks) / static_cast<double>(ios) : 0.0;
    };
    const uint64_t whole_kb = (sum.rd_sec + sum.wr_sec) / kSectorsPerKb;
    const uint32_t whole_queue = sum.rq_ticks / kQueueMs;
    T_DISK_METRICS metrics;
    metrics.throughput = static_cast<double>(whole_kb);
    metrics.rd_latency = quotient(sum.rd_ticks, sum.rd_ios);
    metrics.wr_latency = quotient(sum.wr_ticks, sum.wr_ios);
    metrics.rd_io = static_cast<double>(sum.rd_ios);
    metrics.wr_io = static_cast<double>(sum.wr_ios);
    metrics.queue = static_cast<double>(whole_queue);
    /* The scale is what readers of the dumps know, though it is no plain percentage.
     * I/O in no time is infinite and so 100; no I/O in no time is not a number, which
     * the comparison leaves alone. */
    metrics.pctutil = static_cast<double>(sum.rd_ticks + sum.wr_ticks) / static_cast<double>(sum.inv_ms) *
                      static_cast<double>(ticks_per_s) / 10.0;
    if (metrics.pctutil > kMost)
        metrics.pctutil = kMost;
    metrics.inv_ms = sum.inv_ms;
    metrics.tp_ms = sum.tp_ms;
    return metrics;
}

void disk_metrics_per_second(T_DISK_METRICS *metrics)
{
    if (metrics->inv_ms == 0)
        return;
    const auto inv_ms = static_cast<double>(metrics->inv_ms);
    for (double *amount : {&metrics->throughput, &metrics->rd_io, &metrics->wr_io, &metrics->queue})
        *amount = *amount / inv_ms * 1000;
}

std::string disk_path_of_key(const std::string &key)
{
    return key.substr(0, key.find_first_of(kBlanks));
}

/* --- Lifecycle, queries, dump ----------------------------------------------- */

int sysstat_disk_init()
{
    trace(kSource, "sysstat_disk_init", 745);
    g_ticks_per_s = sysconf(_SC_CLK_TCK);
    g_p_DiskstatManager = new TDiskstatManager;
    (void)disk_flag_update();
    (void)disk_thread_start(); // logs its failure; the rest does without
    return 0;
}

int sysstat_disk_uninit()
{
    disk_thread_stop();
    trace(kSource, "sysstat_disk_uninit", 756);
    delete g_p_DiskstatManager;
    g_p_DiskstatManager = nullptr;
    return 0;
}

int sysstat_disk_proc(const char *method, const char *type, const char *key, json_object **out)
{
    const int head = query_head(method, key, g_p_DiskstatManager, "g_p_DiskstatManager");
    if (head != kQueryOk)
        return head;
    const std::string str_key = g_p_DiskstatManager->key_of_path(key);
    tell("str_key=[%s]\n", str_key.c_str());
    if (query_is(method, "notify"))
        return disk_flag_update();
    if (query_is(method, "get_disk_flag")) {
        /* The record is read and nothing of it told: callers know no more than the 0. */
        t_velomond_shm record;
        (void)velomond_shm_get(&record);
        return kQueryOk;
    }
    return stat_answer(kMethods, method, type, str_key.c_str(), out);
}

int sysstat_disk_info(json_object **out)
{
    trace(kSource, "sysstat_disk_info", 546);
    if (!json_is_valid(*out))
        return -1;
    if (g_p_DiskstatManager == nullptr)
        return 0;
    for (const auto &[key, entry] : g_p_DiskstatManager->entries())
        json_append_text(*out, disk_path_of_key(key));
    return 0;
}

int sysstat_disk_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_disk_dump", 583, folder);
    if (g_p_DiskstatManager == nullptr)
        return 0;
    std::string text;
    for (const auto &[entry_key, entry] : g_p_DiskstatManager->entries()) {
        const std::string key = g_p_DiskstatManager->key_of_path(disk_path_of_key(entry_key));
        text.append(key, 0, kDumpKeySize - 1).push_back('\n');
        stat_rows(&text, kRows, g_p_DiskstatManager->copy_history(key).value_or(std::deque<T_DISK_STAT>()), metrics_of);
        text.push_back('\n');
    }
    csv_write(folder, "disk_stats.csv", text);
    return 0;
}

int sysstat_disk_print()
{
    constexpr int kNewest = 10; // intervals: more than the heading says, and so it has been read since
    if (g_p_DiskstatManager == nullptr)
        return 0;
    const std::string key = g_p_DiskstatManager->key_of_path("/dev/mapper/cachedev1");
    tell("get_total 15min\n");
    stat_print(kPrint, g_p_DiskstatManager->get_total(key, 0));
    tell("get_total 10sec\n");
    stat_print(kPrint, g_p_DiskstatManager->get_total(key, kNewest));
    return 0;
}
