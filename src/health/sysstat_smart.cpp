#include "health/sysstat_smart.h"

#include <functional>
#include <optional>

#include "base/text.h"
#include "common/dashboard.h"
#include "common/debug_log.h"
#include "common/event_log.h"
#include "common/local_time.h"
#include "common/query.h"
#include "common/watcher.h"
#include "health/change_marker.h"
#include "health/smart_settings.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kCheckPeriodMs = 60000;
constexpr uint64_t kTickEarlyMs = 500;
constexpr uint32_t kDiskWarning = 0x28010001;
constexpr uint32_t kDiskError = 0x28020001;
constexpr uint32_t kPowerOnHours = 0x28030001;

TSmartState g_state;

/* Reports the overall state to the dashboard receiver, without retry. */
void do_update(TSmartState *state)
{
    state->report_time = static_cast<uint32_t>(wall_clock_s());
    const long long result = dashboard_post(
        "127.0.0.1", "disk", dashboard_status(state->report_time, "disk_update", kSmartLevelNames[state->overall]));
    if (result != 0)
        log_File_Debug(kLogSmart, "%s:%s (%d) ssci_POST_request failed (%lld)", kSmartSource, "do_update", 331, result);
}

/* Sends the events of the day if they are due at this local time. */
void announce(TSmartState *state, const struct tm &now)
{
    const TSmartSettings &settings = state->settings;
    if (now.tm_hour != settings.sch_hour || now.tm_min != 0 || now.tm_mday == state->last_day || !state->scheduled_hour)
        return;
    state->last_day = now.tm_mday;
    state->scheduled_hour = false;
    smart_send_disk_status(*state);
    if (settings.sch_type != "weekly" || now.tm_wday == settings.sch_weekday) // any other type means every day
        smart_send_power_on_hours(*state);
}

bool is_check_due(const TSmartState &state, uint64_t now_ms)
{
    return state.last_check_ms == 0 || now_ms - state.last_check_ms >= kCheckPeriodMs;
}

void smart_monitor_main(TWorker *self)
{
    bool load_due = true;
    int64_t handled_minute = -1;
    std::optional<TChangeMarker> changed_settings;
    self->run_once([&] { changed_settings.emplace(host_path("/var/.hdd_health_config_change")); });
    /* The events of the day become due with a new minute. A tick comes a little earlier in
     * its second than the check of a minute ago. */
    const auto is_due = [&] {
        return changed_settings->is_due() || is_check_due(g_state, current_time_stamp_mono_r() + kTickEarlyMs) ||
               wall_clock_s() / kMinuteS != handled_minute;
    };
    self->run_passes([&] {
        if (load_due && !get_hdd_health_setting(&g_state)) {
            self->wait_s(1);
            return;
        }
        load_due = false;
        handled_minute = wall_clock_s() / kMinuteS;
        smart_tick(&g_state);
        self->wait_due(std::ref(is_due));
        load_due = changed_settings->take();
    });
}

TWatcher g_watcher({"SMART-worker", "smart_monitor_main", smart_monitor_main},
                   {kLogCamConn, kSmartSource, "smart_thread_start", 489});

} // namespace

void smart_send_disk_status(const TSmartState &state)
{
    for (const auto &[name, disk] : state.disks) {
        if (disk.state == kSmartWarning)
            send_ostra_log(kDiskWarning, disk.label);
        else if (disk.state == kSmartError)
            send_ostra_log(kDiskError, disk.label);
    }
}

void smart_send_power_on_hours(const TSmartState &state)
{
    if (state.recording_disks.empty())
        return;
    const int threshold = state.settings.threshold_hours;
    for (const auto &[name, disk] : state.disks) {
        if (disk.hours > threshold && state.recording_disks.find(disk.name) != std::string::npos)
            send_ostra_log(kPowerOnHours, disk.label, std::to_string(threshold).c_str(),
                           std::to_string(disk.hours).c_str());
    }
}

void smart_tick(TSmartState *state)
{
    /* One moment for the whole tick: a full check of slow disks may take minutes,
     * and the events of the hour it began in must not be lost over it. */
    const struct tm local = state->local.at(wall_clock_s());
    const uint64_t now_ms = current_time_stamp_mono_r();
    if (is_check_due(*state, now_ms)) {
        if (do_update_check(state)) {
            do_update(state);
            state->report_due = false;
        }
        state->last_check_ms = now_ms;
    }
    announce(state, local);
}

int smart_thread_start()
{
    return g_watcher.start();
}

int smart_thread_stop()
{
    return g_watcher.stop();
}

int sysstat_smart_proc(const char *method, json_object **out)
{
    if (method[0] == '\0')
        return query_wrong_args();
    if (!query_is(method, "disk_update"))
        return query_unknown(method);
    TJson object(json_object_new_object());
    json_give_text(object.get(), "utc_time", text_format("%u", g_state.report_time.load()));
    json_give_text(object.get(), "disk_update", kSmartLevelNames[g_state.overall]);
    *out = object.release();
    return kQueryOk;
}
