#include "health/sysstat_vol.h"

#include "common/debug_log.h"
#include "common/local_time.h"
#include "common/trace.h"
#include "common/worker.h"
#include "health/raid_check.h"
#include "health/volume_check.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSource = "sysstat_vol.cpp";
constexpr int64_t kWarmupS = 180;
constexpr int64_t kMinuteS = 60, kHourS = 3600;
constexpr int kRaidHour = 0, kRaidMinute = 25;

TWorker g_vol_worker;
/* These are VOL-worker's, one after the other over restarts. */
T_VOL_SCHEDULE g_schedule;
T_VOLUME_WATCH g_watch;
TLocalMinute g_local;

void do_what_is_due(TWorker *self)
{
    const time_t now = wall_clock_s();
    const T_VOL_DUE due = vol_schedule_tick(&g_schedule, now, g_local.at(now));
    if (due.check)
        do_vol_check(&g_watch, due.force, self);
    if (due.raid)
        do_raid_check();
}

void vol_monitor_main(TWorker *self)
{
    trace(kSource, "vol_monitor_main", 893);
    int64_t handled_s = -1;
    self->run_passes([&] {
        const auto now_s = static_cast<int64_t>(current_time_stamp_mono_r() / 1000);
        if (now_s != handled_s && vol_warmup_elapsed(&g_schedule, now_s)) {
            do_what_is_due(self);
            handled_s = now_s;
        }
        self->wait_s(1);
    });
}

} // namespace

bool vol_warmup_elapsed(T_VOL_SCHEDULE *schedule, int64_t mono_s)
{
    if (!schedule->warmup_origin_s)
        schedule->warmup_origin_s = mono_s;
    return mono_s - *schedule->warmup_origin_s > kWarmupS;
}

T_VOL_DUE vol_schedule_tick(T_VOL_SCHEDULE *schedule, int64_t wall_s, const struct tm &local)
{
    const int64_t next_minute = wall_s / kMinuteS * kMinuteS + kMinuteS;
    const int64_t next_hour = wall_s / kHourS * kHourS + kHourS;
    T_VOL_DUE due = {};
    /* A clock that was set back, perhaps by years, must not leave the volumes
     * unwatched until it is that late again. */
    if (schedule->next_check_s > next_minute + kMinuteS)
        schedule->next_check_s = next_minute;
    if (schedule->next_hour_s > next_hour + kHourS)
        schedule->next_hour_s = next_hour;
    const bool first = schedule->next_check_s == 0 || schedule->next_hour_s == 0;
    if (first || wall_s >= schedule->next_check_s) {
        due.check = true;
        due.force = first || wall_s >= schedule->next_hour_s;
        schedule->next_check_s = next_minute;
        if (due.force)
            schedule->next_hour_s = next_hour;
    }
    if (local.tm_mday != schedule->last_raid_day && local.tm_hour == kRaidHour && local.tm_min == kRaidMinute) {
        due.raid = true;
        schedule->last_raid_day = local.tm_mday;
    }
    return due;
}

int vol_thread_start()
{
    if (const int error = g_vol_worker.start({"VOL-worker", "vol_monitor_main", vol_monitor_main}); error != 0)
        log_File_Debug(kLogCamConn, "%s:%s(%d) pthread_create failed (%d)", kSource, "vol_thread_start", 921, error);
    return 0;
}

int vol_thread_stop()
{
    g_vol_worker.stop();
    g_vol_worker.release();
    return 0;
}

int sysstat_vol_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_vol_dump", 943, folder);
    return 0;
}
