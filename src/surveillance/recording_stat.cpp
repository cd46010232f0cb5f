#include "surveillance/recording_stat.h"

#include <cstdint>
#include <string>

#include "base/mutex.h"
#include "common/dashboard.h"
#include "common/debug_log.h"
#include "common/trace.h"
#include "common/watcher.h"
#include "platform/ssci.h"
#include "platform/system_info.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSource = "recording_stat.cpp";
constexpr const char *kStartMarker = "/var/.Vnvrd_start_ok";
constexpr int kPeriodS = 60;
constexpr uint64_t kWindowMs = 60000; // of a query: one period
constexpr int kTimeoutS = 5;

/* Results of one query. The log shows them as signed numbers. */
constexpr int kRequestFailed = static_cast<int>(0x97090002U);
constexpr int kNoAnswer = static_cast<int>(0x97090003U);
constexpr int kBadAnswer = static_cast<int>(0x97090004U);
constexpr int kCancelled = 1; // by a stop; never logged

constexpr const char *kStateWords[] = {"error", "normal"}; // by is_recording

struct TRecording {
    int32_t is_recording = 0;   // 0 or 1
    int32_t state_utc_time = 0; // seconds
};
TMutex g_lock;
TRecording g_recording GUARDED_BY(g_lock); // only the worker changes it

TRecording recording()
{
    const TLock guard(g_lock);
    return g_recording;
}

void fill_report(json_object *object, const TRecording &state)
{
    json_give(object, "utc_time", TJson(json_object_new_int(state.state_utc_time)));
    json_give_text(object, "camera_recording_update", kStateWords[state.is_recording]);
}

int get_recording_state()
{
    const uint64_t now_ms = current_time_stamp();
    const ssci_params params = {{"start_time", std::to_string(now_ms - kWindowMs)},
                                {"end_time", std::to_string(now_ms)}};
    std::string answer;
    const long long result =
        ssci_GET_request("localhost", 10187, "/recStreamService/recording_state", params, &answer, kTimeoutS);
    if (result == SSCI_CANCELLED)
        return kCancelled;
    if (result != 0) {
        log_File_Debug(kLogRecState, "%s:%s (%d), ssci_GET_request fail\n", kSource, "get_recording_state", 109);
        const TLock guard(g_lock);
        g_recording.is_recording = 0; // a service that cannot be reached records nothing
        return kRequestFailed;
    }
    if (answer.empty())
        return kNoAnswer;
    bool is_recording = false;
    if (const int line = recording_answer_parse(answer, &is_recording); line != 0) {
        log_File_Debug(kLogRecState, "%s:%s (%d), json parser fail\n", kSource, "get_recording_state", line);
        return kBadAnswer;
    }
    const TLock guard(g_lock);
    g_recording = {is_recording ? 1 : 0, static_cast<int32_t>(now_ms / 1000)};
    return 0;
}

void send_report(const TRecording &state)
{
    const TJson report(json_object_new_object());
    fill_report(report.get(), state);
    const long long result = dashboard_post("localhost", "camera_recording", json_text(report.get()));
    if (result != 0) {
        /* Readers of the log search for this verb. */
        log_File_Debug(kLogRecState, "%s:%s (%d), recording state ssci_PUT_request fail:%d\n", kSource,
                       "Recording_state_monitor_main", 193, static_cast<int>(result));
    }
}

uint64_t monotonic_s()
{
    return current_time_stamp_mono_r() / 1000;
}

void Recording_state_monitor_main(TWorker *self)
{
    uint64_t last_second = monotonic_s();
    bool first_report = true;
    int32_t last_reported = 0; // unused before the first report
    /* One pass, which a cancelled query ends. */
    const auto pass = [&] {
        if (!check_system_init(kStartMarker))
            return;
        const uint64_t now_second = monotonic_s();
        if (now_second != last_second || first_report) {
            const int result = get_recording_state();
            last_second = now_second;
            if (result == kCancelled)
                return; // no finding about the recording
            if (result != 0)
                log_File_Debug(kLogRecState, "%s:%s (%d), get_recording_state faile (%d)\n", kSource,
                               "Recording_state_monitor_main", 179, result);
        }
        const TRecording state = recording();
        if (first_report || state.is_recording != last_reported) {
            send_report(state);
            if (!first_report)
                write_stderr("Recording state change \n");
            first_report = false;
            last_reported = state.is_recording; // even if it failed: a report is not repeated
        }
    };
    self->run_passes([&] {
        pass();
        self->wait_s(kPeriodS);
    });
}

TWatcher g_watcher({"RECSTAT-worker", "Recording_state_monitor_main", Recording_state_monitor_main},
                   {kLogRecState, kSource, "recording_stat_init", 269, "%s:%s (%d), pthread_create fail:%d\n"});

} // namespace

int recording_stat_init()
{
    {
        const TLock guard(g_lock);
        g_recording = {};
    }
    return g_watcher.start();
}

int recording_stat_uninit()
{
    return g_watcher.stop();
}

int recording_stat_info(json_object **out)
{
    if (!json_is_valid(*out))
        return -1;
    fill_report(*out, recording());
    return 0;
}

int recording_answer_parse(const std::string &answer, bool *is_recording)
{
    const TJson root = json_parse(answer);
    if (root == nullptr)
        return 124;
    json_object *member = json_member(root.get(), "is_recording");
    if (!json_object_is_type(member, json_type_boolean))
        return 138;
    *is_recording = json_object_get_boolean(member) != 0;
    return 0;
}
