#include "health/sysstat_vol.h"

#include "common/debug_log.h"
#include "common/local_time.h"
#include "common/trace.h"
#include "common/watcher.h"
#include "health/volume_check.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSource = "sysstat_vol.cpp";
constexpr int64_t kWarmupS = 180;
constexpr int64_t kHourS = 3600;
constexpr int kRaidHour = 0, kRaidMinute = 25;

/* Only VOL-worker uses these. */
TVolSchedule g_schedule;
TVolumeWatch g_watch;
TLocalMinute g_local;

void do_what_is_due(time_t now, TWorker *self)
{
    const TVolDue due = vol_schedule_tick(&g_schedule, now, g_local.at(now));
    if (due.check)
        do_vol_check(&g_watch, due.force, self);
    if (due.raid)
        do_raid_check();
}

void vol_monitor_main(TWorker *self)
{
    trace(kSource, "vol_monitor_main", 893);
    int64_t handled_minute = -1;
    /* Nothing becomes due within a minute, only with a new one, also when the clock was set. */
    const auto is_due = [&handled_minute] {
        return vol_warmup_elapsed(&g_schedule, static_cast<int64_t>(current_time_stamp_mono_r() / 1000)) &&
               wall_clock_s() / kMinuteS != handled_minute;
    };
    self->run_passes([&] {
        if (is_due()) {
            const time_t now = wall_clock_s();
            do_what_is_due(now, self);
            handled_minute = now / kMinuteS;
        }
        self->wait_due(is_due);
    });
}

TWatcher g_watcher({"VOL-worker", "vol_monitor_main", vol_monitor_main},
                   {kLogCamConn, kSource, "vol_thread_start", 921});

} // namespace

bool vol_warmup_elapsed(TVolSchedule *schedule, int64_t mono_s)
{
    if (!schedule->warmup_origin_s)
        schedule->warmup_origin_s = mono_s;
    return mono_s - *schedule->warmup_origin_s > kWarmupS;
}

TVolDue vol_schedule_tick(TVolSchedule *schedule, int64_t wall_s, const struct tm &local)
{
    const int64_t next_minute = wall_s / kMinuteS * kMinuteS + kMinuteS;
    const int64_t next_hour = wall_s / kHourS * kHourS + kHourS;
    TVolDue due = {};
    /* A clock that was set back, even by years, must not suspend the checks until it has
     * caught up. */
    if (schedule->next_check_s > next_minute + kMinuteS)
        schedule->next_check_s = next_minute;
    if (schedule->next_hour_s > next_hour + kHourS)
        schedule->next_hour_s = next_hour;
    if (wall_s >= schedule->next_check_s) {
        due.check = true;
        due.force = wall_s >= schedule->next_hour_s;
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
    return g_watcher.start();
}

int vol_thread_stop()
{
    return g_watcher.stop();
}

int sysstat_vol_dump(const char *folder)
{
    trace_folder(kSource, "sysstat_vol_dump", 943, folder);
    return 0;
}
