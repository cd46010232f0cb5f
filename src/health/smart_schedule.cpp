#include "health/smart_schedule.h"

namespace {

constexpr uint64_t kCheckPeriodMs = 60000;

} // namespace

bool smart_check_due(const TSmartSchedule &schedule, uint64_t now_ms)
{
    return schedule.last_check_ms == 0 || now_ms - schedule.last_check_ms >= kCheckPeriodMs;
}

bool smart_full_check(TSmartSchedule *schedule, const TSmartSettings &settings, const struct tm &now)
{
    bool full = false;
    if (now.tm_min == 0 && now.tm_hour != schedule->last_hour) {
        schedule->last_hour = now.tm_hour;
        full = true;
        if (now.tm_hour == settings.sch_hour)
            schedule->scheduled_hour = true;
    }
    if (schedule->settings_changed) {
        schedule->settings_changed = false;
        full = true;
    }
    return full;
}

TSmartAnnounce smart_announce(TSmartSchedule *schedule, const TSmartSettings &settings, const struct tm &now)
{
    const bool due = now.tm_hour == settings.sch_hour && now.tm_min == 0 && now.tm_mday != schedule->last_day &&
                     schedule->scheduled_hour;
    if (!due)
        return {};
    schedule->last_day = now.tm_mday;
    schedule->scheduled_hour = false;
    /* Any type but "weekly" means every day. */
    return {.disk_status = true,
            .power_on_hours = settings.sch_type != "weekly" || now.tm_wday == settings.sch_weekday};
}
