#include "stats/sysstat_disk.h"

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "base/folder.h"
#include "base/text.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"
#include "platform/velomond_shm.h"
#include "stats/disk_flag.h"
#include "stats/proc_text.h"
#include "stats/stat_dump.h"
#include "stats/stat_kind.h"

TDiskstatManager *g_p_DiskstatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_disk.cpp";
constexpr const char *kMapperFolder = "/dev/mapper";
constexpr size_t kPathSize = 256;
constexpr size_t kLine = 256;
constexpr size_t kDumpKeySize = 32;
constexpr int kPrintedNewest = 10; // intervals: more than the heading names, and readers expect it

long g_ticks_per_s = 100; // set once by sysstat_disk_init, before any reader

template <auto kField, int kDecimals> std::string metric(const TDiskMetrics &metrics)
{
    return text_fixed(metrics.*kField, kDecimals);
}

TDiskMetrics amounts(const T_DISK_STAT &sum)
{
    return calc_disk_metrics(sum, g_ticks_per_s);
}

TDiskMetrics rates(const T_DISK_STAT &sum)
{
    return disk_metrics_per_second(amounts(sum));
}

/* The figures of a device: amounts, those and rates with decimals, in the print. */
using TMetricFigure = TFigure<TDiskMetrics>;
constexpr TMetricFigure kCurrent[] = {{"throughput", metric<&TDiskMetrics::throughput, 0>},
                                      {"rd_latency", metric<&TDiskMetrics::rd_latency, 1>},
                                      {"wr_latency", metric<&TDiskMetrics::wr_latency, 1>},
                                      {"rd_io", metric<&TDiskMetrics::rd_io, 0>},
                                      {"wr_io", metric<&TDiskMetrics::wr_io, 0>}};
constexpr TMetricFigure kSum[] = {kCurrent[0], kCurrent[3], kCurrent[4]};
constexpr TMetricFigure kRows[] = {
    {"throughput", metric<&TDiskMetrics::throughput, 1>}, {"rd_latency", metric<&TDiskMetrics::rd_latency, 1>},
    {"wr_latency", metric<&TDiskMetrics::wr_latency, 1>}, {"rd_io", metric<&TDiskMetrics::rd_io, 1>},
    {"wr_io", metric<&TDiskMetrics::wr_io, 1>},           {"pctutil", metric<&TDiskMetrics::pctutil, 1>}};
constexpr TFigures<TDiskMetrics> kPerSecond(kRows, 5);
constexpr TFigure<T_DISK_STAT> kPrintFigures[] = {
    {"rd_ios  =", figure_u64<&T_DISK_STAT::rd_ios>},   {"rd_sec  =", figure_u64<&T_DISK_STAT::rd_sec>},
    {"rd_ticks=", figure_u64<&T_DISK_STAT::rd_ticks>}, {"wr_ios  =", figure_u64<&T_DISK_STAT::wr_ios>},
    {"wr_sec  =", figure_u64<&T_DISK_STAT::wr_sec>},   {"wr_ticks=", figure_u64<&T_DISK_STAT::wr_ticks>},
    {"rq_ticks=", figure_u64<&T_DISK_STAT::rq_ticks>}, {"inv_ms  =", figure_i64<&T_DISK_STAT::inv_ms>},
    {"tp_ms   =", figure_i64<&T_DISK_STAT::tp_ms>},
};

using TDiskViews = TStatViews<T_DISK_STAT, TDiskMetrics>;
constexpr TStatPrint<T_DISK_STAT> kPrint = {kPrintFigures};
constexpr TDiskViews kCurrentView = {{kCurrent, amounts}}, kSumView = {{kSum, amounts}}, kRowView = {{kRows, amounts}},
                     kRateView = {{kPerSecond, rates}};

constexpr TStatMethod<T_DISK_STAT, TDiskMetrics> kMethods[] = {
    {"cur_data", kNewest<T_DISK_STAT>, kCurrentView},
    {"total", kTotal<T_DISK_STAT>, kSumView},
    {"avg", kTotal<T_DISK_STAT>, kRateView},
    {"line_data", kSeries<T_DISK_STAT>, kRateView},
};

} // namespace

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
    const TFolder folder = folder_open(host_path(kMapperFolder));
    if (folder == nullptr) {
        write_stderr("Cannot open %s: %s\n", kMapperFolder, error_text(errno).c_str());
        return;
    }
    while (const dirent64 *entry = folder_next(folder.get())) {
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

int sysstat_disk_init()
{
    trace(kSource, "sysstat_disk_init", 745);
    g_ticks_per_s = sysconf(_SC_CLK_TCK);
    g_p_DiskstatManager = new TDiskstatManager;
    (void)disk_flag_update();
    disk_thread_start();
    return 0;
}

int sysstat_disk_uninit()
{
    disk_thread_stop();
    return stat_uninit(&g_p_DiskstatManager, kSource, "sysstat_disk_uninit", 756);
}

int sysstat_disk_sample()
{
    if (g_p_DiskstatManager == nullptr)
        return 0;
    const auto now_ms = static_cast<int64_t>(current_time_stamp());
    const auto text = proc_read("/proc/diskstats");
    if (!text)
        return -1;
    for (std::string_view rest = *text, line; !(line = text_next_line(&rest, kLine)).empty();) {
        auto parsed = disk_line_parse(line);
        if (!parsed)
            continue;
        parsed->stat.inv_ms = parsed->stat.tp_ms = now_ms;
        /* A device that is not followed has no entry and is refused. */
        g_p_DiskstatManager->add_sample(g_p_DiskstatManager->key_of_number(parsed->major, parsed->minor), parsed->stat);
    }
    return 0;
}

int sysstat_disk_proc(const char *method, const char *type, const char *key, json_object **out)
{
    const int head = query_head(method, key, g_p_DiskstatManager, "g_p_DiskstatManager");
    if (head != kQueryOk)
        return head;
    const std::string str_key = g_p_DiskstatManager->key_of_path(key);
    write_stderr("str_key=[%s]\n", str_key.c_str());
    if (query_is(method, "notify"))
        return disk_flag_update();
    if (query_is(method, "get_disk_flag")) {
        /* The record is read and nothing of it is answered: callers get no more than the 0. */
        t_velomond_shm record;
        (void)velomond_shm_get(&record);
        return kQueryOk;
    }
    return stat_answer<T_DISK_STAT>(kMethods, *g_p_DiskstatManager, method, type, str_key, out);
}

int sysstat_disk_info(json_object **out)
{
    trace(kSource, "sysstat_disk_info", 546);
    if (!json_is_valid(*out))
        return -1;
    if (g_p_DiskstatManager == nullptr)
        return 0;
    for (const std::string &key : g_p_DiskstatManager->keys())
        json_append_text(*out, disk_path_of_key(key));
    return 0;
}

int sysstat_disk_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_disk_dump", 583, folder);
    if (g_p_DiskstatManager == nullptr)
        return 0;
    std::string text;
    for (const std::string &one : g_p_DiskstatManager->keys()) {
        const std::string key = g_p_DiskstatManager->key_of_path(disk_path_of_key(one));
        stat_block(&text, key.substr(0, kDumpKeySize - 1), kRowView.of(key), stat_history(*g_p_DiskstatManager, key));
    }
    csv_write(folder, "disk_stats.csv", text);
    return 0;
}

int sysstat_disk_print()
{
    if (g_p_DiskstatManager != nullptr)
        stat_print_totals(*g_p_DiskstatManager, g_p_DiskstatManager->key_of_path("/dev/mapper/cachedev1"),
                          kPrintedNewest, kPrint);
    return 0;
}
