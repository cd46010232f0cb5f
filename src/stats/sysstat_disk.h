#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "base/json.h"
#include "stats/statManager.h"

/* I/O of the appliance's cache devices: the nodes of /dev/mapper with "cachedev"
 * in their path that were there at start. The key of one is its path, its major
 * and its minor number, separated by blanks. */

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

class TDiskstatManager : public TStatManagerBase<T_DISK_STAT> {
public:
    TDiskstatManager();
    ~TDiskstatManager() override;

    /* The key of a device; empty for one that is not followed. Any thread. */
    std::string key_of_path(const std::string &path) const;
    std::string key_of_number(uint32_t major, uint32_t minor) const;

private:
    void init_map() override;

    /* Filled by init_map, before anybody else can see the object, and never
     * touched after, so that looking up needs no lock. What is not in them has the
     * empty key, and always will: keeping a mapping for each such path or device
     * would tell nobody anything and grow with every name that a peer makes up. */
    std::map<std::string, std::string> m_path_keys;
    std::map<std::pair<uint32_t, uint32_t>, std::string> m_number_keys;
};

/* Null while the kind is not up. Set before any reader runs, cleared after the
 * last one is gone. */
extern TDiskstatManager *g_p_DiskstatManager;

/* Init also makes the first disk-flag update and starts DISK-worker (disk_flag.h),
 * which uninit joins before the manager goes. Always 0. */
int sysstat_disk_init();
int sysstat_disk_uninit();

/* Takes one reading of every device; a step of the sampling round. 0; -1 when
 * /proc/diskstats cannot be opened. */
int sysstat_disk_sample();

/* Answers a query for the device of a path: "cur_data" (amounts of the newest
 * interval), "total" and "avg" (amounts, or amounts per second, of the newest
 * `type` intervals, 0 all) or "line_data" (per second, a point a minute); *out gets
 * a new object with figures as texts, zeros for a device that is not followed.
 * "notify" makes a disk-flag update and answers its result; "get_disk_flag" answers
 * 0. Both want a path too, any. -4 without method or path, -2 without manager, -6
 * for a negative type, -3 for an unknown method. */
int sysstat_disk_proc(const char *method, const char *type, const char *key, json_object **out);

/* Appends the devices' paths to the array at *out. 0, or -1 without one. */
int sysstat_disk_info(json_object **out);

/* Writes "disk_stats.csv" into a dump folder. Always 0. */
int sysstat_disk_dump(const char *folder);

/* Prints the sums of the first cache device on standard error. Always 0. */
int sysstat_disk_print();

/* --- Parsing and computing, for the above and for tests ------------------- */

/* One line of /proc/diskstats. False, and nothing changed, when it has not all of
 * the fourteen columns that every kernel gives. */
struct T_DISK_LINE {
    uint32_t major = 0;
    uint32_t minor = 0;
    T_DISK_STAT stat; // without times
};
bool disk_line_parse(std::string_view line, T_DISK_LINE *parsed);

/* The device path of a key: what comes before its first blank. */
std::string disk_path_of_key(const std::string &key);

struct T_DISK_METRICS {
    double throughput = 0; // kB
    double rd_latency = 0; // ms per read
    double wr_latency = 0;
    double rd_io = 0;
    double wr_io = 0;
    double queue = 0;
    double pctutil = 0; // at most 100.0; no plain percentage
    int64_t inv_ms = 0;
    int64_t tp_ms = 0;
};
T_DISK_METRICS calc_disk_metrics(const T_DISK_STAT &sum, long ticks_per_s);

/* Amounts become amounts per second, where any time has passed. */
void disk_metrics_per_second(T_DISK_METRICS *metrics);
