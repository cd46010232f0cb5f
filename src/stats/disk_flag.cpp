#include "stats/disk_flag.h"

#include <algorithm>

#include "base/mutex.h"
#include "common/debug_log.h"
#include "common/local_time.h"
#include "common/watcher.h"
#include "platform/ostra.h"
#include "platform/pal.h"
#include "platform/ssci.h"
#include "platform/velomond_shm.h"

namespace {

constexpr const char *kSource = "sysstat_disk.cpp";
constexpr int kPeriodS = 60;
constexpr int kMinutesApart = 10;

/* The result of one update. */
struct TFinding {
    int32_t disk_present = kDiskUnknown.number;
    int32_t storage_setting = 1;
};

/* Also for reading, changing and writing the shared record. */
TMutex g_lock;
TFinding g_newest GUARDED_BY(g_lock); // of the updates that have been written
uint64_t g_newest_number GUARDED_BY(g_lock) = 0;
uint64_t g_last_number GUARDED_BY(g_lock) = 0; // updates are numbered as they begin

uint64_t begin_update()
{
    const TLock guard(g_lock);
    return ++g_last_number;
}

/* Listing the disks may take long. An update that was overtaken by a later one writes
 * what that one found, or stale data would persist for ten minutes. */
void write_finding(uint64_t number, const TFinding &finding)
{
    const TLock guard(g_lock);
    if (number > g_newest_number) {
        g_newest_number = number;
        g_newest = finding;
    }
    t_velomond_shm record;
    (void)velomond_shm_get(&record); // on failure from zeros: every field that is ours is set
    record.disk_present = g_newest.disk_present;
    record.reserved = 0;
    record.storage_setting = g_newest.storage_setting;
    (void)velomond_shm_set(&record);
}

int32_t read_storage_setting()
{
    int flag = 1;
    COstraStorage storage;
    (void)storage.create_storage_setting();
    (void)storage.get_storage_flag(&flag);
    storage.destroy_storage_setting();
    return flag;
}

void disk_monitor_main(TWorker *self)
{
    self->run_passes([self] {
        if (disk_flag_is_due(local_time_of(wall_clock_s())))
            disk_flag_update();
        self->wait_s(kPeriodS);
    });
}

/* Logged with the camera connections: the two have always shared that log. */
TWatcher g_watcher({"DISK-worker", "disk_monitor_main", disk_monitor_main},
                   {kLogCamConn, kSource, "disk_thread_start", 730});

} // namespace

int disk_flag_update()
{
    const uint64_t number = begin_update();
    int result = 0;
    t_auth auth;
    if (PAL_auth_get_auth(auth) != 0)
        result = -1;
    t_storage_disk_list list;
    if (PAL_storage_get_disk_list(auth, t_storage_disk_input(), list) != 0)
        result = -2;
    const bool present =
        std::any_of(list.disks.begin(), list.disks.end(), [](const t_storage_disk &disk) { return disk.status >= 0; });
    write_finding(number, {present ? 1 : 0, read_storage_setting()});

    constexpr int kCategory = 14;
    constexpr int kCode = 14001;
    constexpr int kLevel = 5;
    TNotifySessionManager session("VeloMond");
    (void)session.sendNotification(kCategory, kCode, "", kLevel);
    return result;
}

int32_t disk_flag_present()
{
    const TLock guard(g_lock);
    return g_newest.disk_present;
}

void disk_thread_start()
{
    g_watcher.start();
}

void disk_thread_stop()
{
    g_watcher.stop();
}

bool disk_flag_is_due(const struct tm &local)
{
    return local.tm_min % kMinutesApart == 0;
}
