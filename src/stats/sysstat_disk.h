#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "base/json.h"
#include "common/history.h"
#include "stats/disk_record.h"

/* I/O of the appliance's cache devices: the nodes of /dev/mapper with "cachedev"
 * in their path that were there at start. The key of one is its path, its major
 * and its minor number, separated by blanks. */

class TDiskstatManager : public TStatManagerBase<T_DISK_STAT> {
public:
    TDiskstatManager();
    ~TDiskstatManager() override;
    TDiskstatManager(const TDiskstatManager &) = delete;
    TDiskstatManager &operator=(const TDiskstatManager &) = delete;

    /* The key of a device; empty for one that is not followed. Any thread. */
    std::string key_of_path(const std::string &path) const;
    std::string key_of_number(uint32_t major, uint32_t minor) const;

private:
    void init_map() override;

    /* Filled by init_map, before any other thread can see the object, and never changed
     * after, so lookups need no lock. What is missing here has the empty key, and always
     * will: a mapping for each such path or device would hold no information and grow
     * with every name that a peer makes up. */
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
