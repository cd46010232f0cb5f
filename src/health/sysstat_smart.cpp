#include "health/sysstat_smart.h"

#include <cstdio>
#include <unistd.h>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/query.h"
#include "common/watcher.h"
#include "health/smart_events.h"
#include "platform/host_path.h"
#include "platform/time_stamp.h"

namespace {

TSmartState g_state;

void smart_monitor_main(TWorker *self)
{
    bool load_due = true;
    std::string marker;
    self->run_once([&] { marker = smart_change_marker(); });
    self->run_passes([&] {
        if (load_due && !smart_load_settings(&g_state)) {
            self->wait_s(1);
            return;
        }
        load_due = false;
        smart_tick(&g_state);
        self->wait_s(1);
        load_due = smart_take_change_marker(marker);
    });
}

TWatcher g_watcher({"SMART-worker", "smart_monitor_main", smart_monitor_main},
                   {kLogCamConn, kSmartSource, "smart_thread_start", 489});

} // namespace

bool smart_load_settings(TSmartState *state)
{
    if (!get_hdd_health_setting(smart_read_key, &state->settings))
        return false;
    state->schedule.last_day = TSmartSchedule().last_day;
    return true;
}

std::string smart_change_marker()
{
    return host_path("/var/.hdd_health_config_change");
}

bool smart_take_change_marker(const std::string &marker)
{
    if (access(marker.c_str(), F_OK) != 0)
        return false;
    (void)remove(marker.c_str());
    return true;
}

void smart_tick(TSmartState *state)
{
    /* One moment for the whole tick: a full check of slow disks may take minutes,
     * and the events of the hour it began in must not be lost over it. */
    const struct tm local = state->local.at(wall_clock_s());
    const uint64_t now_ms = current_time_stamp_mono_r();
    if (smart_check_due(state->schedule, now_ms)) {
        if (do_update_check(state) || state->report_pending) {
            do_update(state);
            state->changed = false;
            state->report_pending = false;
        }
        state->schedule.last_check_ms = now_ms;
    }
    const TSmartAnnounce announce = smart_announce(&state->schedule, state->settings, local);
    if (announce.disk_status)
        smart_send_disk_status(*state);
    if (announce.power_on_hours)
        smart_send_power_on_hours(*state);
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
