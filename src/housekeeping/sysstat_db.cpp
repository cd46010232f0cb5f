#include "housekeeping/sysstat_db.h"

#include <algorithm>
#include <string>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/event_log.h"
#include "common/system_volume.h"
#include "common/watcher.h"
#include "platform/ostra.h"
#include "platform/pal.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSource = "sysstat_db.cpp";
constexpr uint32_t kDatabaseTooLarge = 0x25030003;
constexpr int kPeriodS = 60;
constexpr double kBytesPerGb = 1024.0 * 1024.0 * 1024.0;
constexpr double kLargestShare = 0.05;
constexpr double kSmallVolumeGb = 64.0;

int hour_of_now(int fallback)
{
    struct tm date = {};
    return get_date_and_time(&date, current_time_stamp_mono_r()) == 0 ? date.tm_hour : fallback;
}

/* The usage of the system volume; its size is 0 if it is unknown. */
t_volume_usage system_volume_usage()
{
    if (const auto id = volume_id_read(kSystemVolumeKey))
        g_system_volume_id = *id;
    t_auth auth;
    t_volume_info info;
    if (PAL_auth_get_auth(auth) == 0)
        (void)PAL_resmon_get_disk_usage(auth, t_volume_info(), info);
    const auto found = std::find_if(info.usage.begin(), info.usage.end(), [](const t_volume_usage &volume) {
        return volume.volume_id == g_system_volume_id;
    });
    return found != info.usage.end() ? *found : t_volume_usage();
}

/* One check. False without a volume to compare with. */
bool check(CDBSize *probe)
{
    const t_volume_usage volume = system_volume_usage();
    if (volume.size_bytes == 0)
        return false;
    db_size_m size;
    (void)probe->check_database_size(size);
    if (!db_too_large(size.total_mb, volume.size_bytes, volume.free_bytes))
        return true;
    const std::string name = text_format("DataVol%d", volume.volume_id);
    const std::string size_text = text_format("%f GB", static_cast<double>(volume.free_bytes) / kBytesPerGb);
    (void)send_ostra_log(kDatabaseTooLarge, "Ostra Surveillance", name.c_str(), size_text.c_str());
    return true;
}

void do_data_processing(TWorker *self)
{
    CDBSize probe;
    int last_hour = 0;
    self->run_once([&] {
        (void)probe.init();
        last_hour = hour_of_now(0);
    });
    self->run_passes([&] {
        const int hour = hour_of_now(last_hour);
        if (hour != last_hour && check(&probe)) // without a volume the next minute tries again
            last_hour = hour;
        self->wait_s(kPeriodS);
    });
}

void cancel_failed(const char *call, int error)
{
    const int line = std::string_view(call) == "pthread_setcancelstate" ? 176 : 180;
    log_File_Debug(kLogMain, "%s:%s(%d)- %s failed..., errno=%d", kSource, "do_data_processing", line, call, error);
}

TWatcher g_watcher({"DB-worker", "do_data_processing", do_data_processing, cancel_failed},
                   {kLogMain, kSource, "sysdb_thread_start", 209, "%s:%s(%d)- pthread_create failed (%d)"});

} // namespace

bool db_too_large(uint64_t db_mb, int64_t size_bytes, int64_t second_bytes)
{
    const double size_mb = static_cast<double>(size_bytes) / (1024.0 * 1024.0);
    return static_cast<double>(db_mb) / size_mb > kLargestShare &&
           static_cast<double>(second_bytes) / kBytesPerGb < kSmallVolumeGb;
}

int sysdb_thread_start()
{
    return g_watcher.start();
}

int sysdb_thread_stop()
{
    return g_watcher.stop();
}
