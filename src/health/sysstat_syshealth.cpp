#include "health/sysstat_syshealth.h"

#include <algorithm>

#include "base/text.h"
#include "common/dashboard.h"
#include "common/debug_log.h"
#include "common/query.h"
#include "common/trace.h"
#include "common/watcher.h"
#include "platform/pal.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSource = "sysstat_syshealth.cpp";
constexpr uint64_t kCheckPeriodMs = 60000;
constexpr int kFanFailed = 9;
constexpr const char *kFanTexts[] = {"normal", "error"}; // by fan_error

TSyshealthState g_state; // lives as long as the process: a restart of the monitors keeps it

/* A failed query counts as normal: an error is cleared silently, and reported again by
 * the next query that finds it. */
bool do_get_fan_state(TSyshealthState *state)
{
    t_auth auth;
    (void)PAL_auth_get_auth(auth);
    t_syshealth_info info;
    std::string text;
    const uint32_t result = PAL_mgr_syshealth_info(&auth, &info, &text);
    if (result != 0) {
        state->query_failed = true;
        log_File_Debug(kLogSysHealth, "%s:%s (%d) NasHTTPAPI_SYSHEALTH_info (%d)\n", kSource, "do_get_fan_state", 70,
                       static_cast<int>(result));
        return false;
    }
    const TLock guard(state->text_lock);
    state->sys_health_text = info.text;
    return syshealth_fan_failed(info.fans);
}

void do_update(TSyshealthState *state)
{
    state->last_utc_time = static_cast<uint32_t>(wall_clock_s());
    if (state->query_failed)
        return;
    const long long result = dashboard_post(
        "127.0.0.1", "fan", dashboard_status(state->last_utc_time, "fan_update", kFanTexts[state->fan_error]));
    if (result != 0)
        log_File_Debug(kLogSysHealth, "%s:%s (%d) ssci_POST_request failed (%lld)\n", kSource, "do_update", 114,
                       result);
}

/* The time until the next check is due: at most one a minute. 0 is now. */
uint64_t due_in_ms(uint64_t last_check_ms, uint64_t now_ms)
{
    const bool is_due = last_check_ms == 0 || now_ms - last_check_ms >= kCheckPeriodMs;
    return is_due ? 0 : kCheckPeriodMs - (now_ms - last_check_ms);
}

void syshealth_monitor_main(TWorker *self)
{
    self->run_passes([self] {
        syshealth_check(&g_state, current_time_stamp_mono_r());
        const uint64_t wait_ms = due_in_ms(g_state.last_check_ms, current_time_stamp_mono_r());
        self->wait_s(std::max(static_cast<int>((wait_ms + 999) / 1000), 1));
    });
}

TWatcher g_watcher({"SYS_HEALTH-worker", "syshealth_monitor_main", syshealth_monitor_main},
                   {kLogMain, kSource, "syshealth_thread_start", 176});

} // namespace

bool syshealth_fan_failed(const std::vector<std::pair<std::string, std::string>> &fans)
{
    return std::any_of(fans.begin(), fans.end(),
                       [](const auto &fan) { return text_to_int(fan.second.c_str()) == kFanFailed; });
}

void syshealth_check(TSyshealthState *state, uint64_t now_ms)
{
    if (due_in_ms(state->last_check_ms, now_ms) != 0)
        return;
    const bool fan_error = do_get_fan_state(state);
    if (state->fan_error.exchange(fan_error) != fan_error || state->force_update || state->query_failed) {
        state->force_update = true; // if the report throws, the next check repeats it
        do_update(state);
        state->force_update = false;
        state->query_failed = false;
    }
    state->last_check_ms = now_ms;
}

int sysstat_syshealth_init()
{
    trace(kSource, "sysstat_syshealth_init", 190);
    return g_watcher.start();
}

int sysstat_syshealth_uninit()
{
    trace(kSource, "sysstat_syshealth_uninit", 198);
    return g_watcher.stop();
}

int sysstat_syshealth_proc(const char *method, json_object **out)
{
    if (method[0] == '\0')
        return query_wrong_args();
    TJson object(json_object_new_object());
    if (query_is(method, "fan_update")) {
        json_give_text(object.get(), "utc_time", text_format("%u", g_state.last_utc_time.load()));
        json_give_text(object.get(), "fan_update", kFanTexts[g_state.fan_error]);
    } else if (query_is(method, "sys_health")) {
        const TLock guard(g_state.text_lock);
        json_give_text(object.get(), "sys_health", g_state.sys_health_text);
    } else {
        return query_unknown(method);
    }
    *out = object.release();
    return kQueryOk;
}
