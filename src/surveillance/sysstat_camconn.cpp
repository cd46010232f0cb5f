#include "surveillance/sysstat_camconn.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "base/mutex.h"
#include "base/text.h"
#include "common/debug_log.h"
#include "common/query.h"
#include "common/watcher.h"
#include "platform/ssci.h"
#include "platform/time_stamp.h"

TCamConnStatManager *g_p_CamConnstatManager = nullptr;

namespace {

constexpr const char *kSource = "sysstat_camconn.cpp";
constexpr const char *kService = "recStreamService";
constexpr int kTimeoutS = 5;
constexpr uint64_t kPeriodS = 60;

/* The identities as last loaded. Tables are replaced whole and never change, so a
 * query keeps the one that it got. */
TMutex g_lock;
std::shared_ptr<const TCameras> g_cameras GUARDED_BY(g_lock);

void set_cameras(TCameras cameras)
{
    auto loaded = std::make_shared<const TCameras>(std::move(cameras));
    const TLock guard(g_lock);
    g_cameras.swap(loaded); // the old table goes after the lock
}

std::shared_ptr<const TCameras> cameras()
{
    const TLock guard(g_lock);
    return g_cameras;
}

/* Queries the recording service and has `take` read the array "data" of its answer. 0;
 * -1 no answer, -2 no JSON, -3 no array in it: logged under the name of the caller. */
int ask(const char *path, const char *caller, const std::function<void(json_object *data)> &take)
{
    std::string text;
    const long long result = ssci_GET_request(kService, path, ssci_params(), &text, kTimeoutS);
    if (result != 0) {
        log_File_Debug(kLogCamConn, "%s:%s(%d) ssci_GET_request failed (%08llx)", kSource, caller, 131,
                       static_cast<unsigned long long>(result));
        return -1;
    }
    const TJson root = json_parse(text);
    if (root == nullptr) {
        log_File_Debug(kLogCamConn, "%s:%s(%d) json_tokener_parse failed", kSource, caller, 138);
        log_File_Debug(kLogCamConn, "[%s]", text.c_str());
        return -2;
    }
    json_object *data = json_member(root.get(), "data");
    if (!json_object_is_type(data, json_type_array)) {
        log_File_Debug(kLogCamConn, "%s:%s(%d) p_datas not found", kSource, caller, 145);
        return -3;
    }
    take(data);
    return 0;
}

/* Until the next reading is due: a second at least. */
int wait_of(uint64_t last_s, uint64_t now_s)
{
    return now_s < last_s + kPeriodS ? static_cast<int>(last_s + kPeriodS - now_s) : 1;
}

void camconn_monitor_main(TWorker *self)
{
    self->run_once([] { sysstat_caminfo_get(); });
    uint64_t last_s = 0; // the first reading comes when the machine has been up for a period
    self->run_passes([&] {
        const uint64_t now_s = current_time_stamp_mono_r() / 1000;
        if (now_s >= last_s + kPeriodS) {
            sysstat_camconn_get();
            last_s = now_s;
        }
        self->wait_s(wait_of(last_s, current_time_stamp_mono_r() / 1000));
    });
}

TWatcher g_watcher({"CAMCONN-worker", "camconn_monitor_main", camconn_monitor_main},
                   {kLogCamConn, kSource, "camconn_thread_start", 187});

} // namespace

int sysstat_camconn_init()
{
    const long long result = ssci_nameserver_init("localhost", 10182);
    if (result != 0)
        log_File_Debug(kLogCamConn, "%s:%s(%d) ssci_nameserver_init ret=[%08llx]", kSource, "sysstat_camconn_init", 201,
                       static_cast<unsigned long long>(result));
    set_cameras({});
    g_p_CamConnstatManager = new TCamConnStatManager;
    return g_watcher.start();
}

int sysstat_camconn_uninit()
{
    g_watcher.stop();
    delete g_p_CamConnstatManager;
    g_p_CamConnstatManager = nullptr;
    return 0;
}

int sysstat_caminfo_get()
{
    return ask("/recStreamService/ChannelConnInfo", "sysstat_caminfo_get",
               [](json_object *data) { set_cameras(camera_table_parse(data)); });
}

void sysstat_camconn_get()
{
    if (g_p_CamConnstatManager == nullptr)
        return;
    const uint64_t now_ms = current_time_stamp(); // before the request, which may take seconds
    (void)ask("/recStreamService/ChannelConnStat", "sysstat_camconn_get", [now_ms](json_object *data) {
        const T_CAM_CONN_STAT reading = cam_conn_parse(data, now_ms);
        if (reading.at().info_changed.any())
            sysstat_caminfo_get();
        g_p_CamConnstatManager->add_sample(TCamConnStatManager::kKey, reading);
    });
}

int sysstat_camconn_proc(const char *method, const char *count, json_object **out)
{
    constexpr const char *kFunction = "sysstat_camconn_proc";
    if (g_p_CamConnstatManager == nullptr) {
        /* The name of another manager, for which the log is searched. */
        log_File_Debug(kLogCamConn, "%s:%s(%d) g_p_NetstatManager does not exist.", kSource, kFunction, 262);
        return kQueryNoManager;
    }
    if (query_is(method, "cur_data")) {
        *out = cam_conn_json(g_p_CamConnstatManager->get_current(TCamConnStatManager::kKey)).release();
        return kQueryOk;
    }
    if (query_is(method, "total")) {
        const int count_val = text_to_int(count);
        if (count_val < 0) {
            log_File_Debug(kLogCamConn, "%s:%s(%d) count_val=[%d] invalid.", kSource, kFunction, 281, count_val);
            return kQueryBadCount;
        }
        *out = cam_conn_json(g_p_CamConnstatManager->get_total(TCamConnStatManager::kKey, count_val)).release();
        return kQueryOk;
    }
    if (query_is(method, "channel_info")) {
        *out = camera_table_json(*cameras()).release();
        return kQueryOk;
    }
    log_File_Debug(kLogCamConn, "%s:%s(%d) method=[%s] not support.", kSource, kFunction, 297,
                   text_printable(method).c_str());
    return kQueryNoMethod;
}
