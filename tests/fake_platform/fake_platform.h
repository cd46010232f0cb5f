#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/cmv_info.h"
#include "platform/host_path.h"
#include "platform/logging.h"
#include "platform/ostra.h"
#include "platform/pal.h"
#include "platform/ssci.h"
#include "platform/velomond_shm.h"
#include "platform/vos_cond.h"

/* A platform for unit tests: answers are scripted, calls are recorded, the test sets the time, and every path lies
 * below a fresh folder. Any thread may use it. Script functions run on the thread that made the call, without any
 * lock. */
namespace fake {

using argv_t = std::vector<std::string>; // [0] is the program, as a plain path

struct TRequest {
    std::string verb; // "GET", "PUT", ...
    std::string host; // or the service's name, with port 0
    int port = 0;
    std::string path;
    ssci_params params;
    std::string body;
    int timeout_s = 0;
};

/* The platform's answers, and the calls made to it. Each `..._result` is the result of one call; outputs are only
 * filled in on 0. */
struct TState {
    /* Service calls. */
    long long create_result = 0, start_result = 0, session_result = 0, stop_result = 0, destroy_result = 0;
    std::vector<std::string> notices;                                  // "session category code [text] level"
    std::vector<TRequest> requests;                                    // to other services
    std::function<long long(const TRequest &, std::string *)> request; // not set: 3

    /* Platform access layer. */
    uint32_t auth_result = 0, usage_result = 0, enclosure_result = 0, syssetting_result = 0, syshealth_result = 0,
             proxy_result = 0;
    std::vector<t_volume_usage> usage;
    t_storage_enclosure_info enclosure;
    std::vector<int> enclosures_asked; // device ids
    t_system syssetting;
    int syssetting_calls = 0;
    t_syshealth_info syshealth;
    std::function<uint32_t(int id, t_storage_disk_vol_info &out)> volume_info; // these three fail if not set
    std::function<uint32_t(int enclosure, t_storage_disk_list &out)> disk_list;
    std::function<uint32_t(int id, t_storage_smart_info &out)> smart;
    std::vector<std::string> nc_notify; // fourteen texts each, "-" for null, with "|" behind
    std::vector<t_vbus_reverse_proxy_info> proxy_requests;
    t_vbus_reverse_proxy_info proxy_answer; // its response is returned on failure too
    int ostrapro_disabled = 0;

    /* Configuration. */
    std::map<std::string, std::string> self_conf;
    std::map<std::string, std::string> ini; // "file|section|key"
    std::set<std::string> ini_unreadable;   // files
    std::map<std::string, std::string> nvr; // "section|key"
    int nvr_error = 0;                      // not 0: every key fails with it
    std::map<std::string, int> nvr_errors;  // of single keys

    /* Surveillance storage, records, model. */
    int ostra_open = 0; // how many are open
    std::optional<int> storage_flag;
    db_size_m db_size;
    int cmv_result = 0; // of both
    st_cmv_info cmv_now = {}, cmv_record = {};
    int shm_get_result = 0, shm_gets = 0, shm_sets = 0;
    t_velomond_shm shm;
    uint32_t platform_system = 0;
    std::vector<log_info> surveillance_log;
    long long surveillance_log_result = 0;
    int cond_signals = 0;              // of vos_cond_wait_signal
    int thread_error = 0;              // of pthread_create, where the daemon calls it
    int hanging_alarm = 0, alarms = 0; // the thread that sets this one hangs, and it goes off; how many there were

    /* Programs. */
    std::vector<argv_t> programs;            // that kestrel_exec and kestrel_popen were called to run, in order
    std::function<int(const argv_t &)> exec; // not set: 0
    std::function<std::optional<std::string>(const argv_t &)> popen; // not set: it cannot be started
    int streams_open = 0;                                            // of kestrel_popen; 0 at the end of a test

    std::string root;
};

/* The state, locked until the end of the expression: `state()->auth_result = 1`. Copy what is needed for longer. */
struct TLockedState {
    std::unique_lock<std::recursive_mutex> lock;
    TState &state;
    TState *operator->() { return &state; }
};
TLockedState state();

/* Sets the output to `value` when `result` is 0. */
template <typename TResult, typename TValue>
TResult give(TResult result, const std::type_identity_t<TValue> &value, TValue &out)
{
    if (result == 0)
        out = value;
    return result;
}

/* Clocks. */
extern std::atomic<uint64_t> g_wall_ms, g_mono_ms;
void advance_ms(uint64_t ms); // both

/* Waits. A wait with a signal pending returns at once. Otherwise the hook is called in place of the wait; it may move
 * the clocks, and may signal. Without a hook the thread sleeps until signalled, or until the test lets the wait
 * pass. */
void on_wait(std::function<void(vos_cond_t *cond, int seconds)> hook);
/* Lets the next `count` waits of the thread of that name (default: of the only worker) time out, moving the clocks by
 * their seconds, and returns when it sleeps in the following one; 0 waits for the first sleep. */
void pass_waits(int count, const std::string &thread = "");
/* Runs a tick after each of these times: how many workers each one wakes. Every time the thread sleeps again. */
std::string woken_by_ticks(const std::string &thread, const std::vector<uint64_t> &after_ms = {0});

int time_limit_s(); // for the program that the calling thread runs

/* Calls a handler; null when the path or method is not served. */
std::shared_ptr<httpserver::http_response> call_route(const std::string &method, const std::string &path,
                                                      const std::map<std::string, std::string> &args = {},
                                                      const std::string &body = "");

/* What `action` writes to standard error. */
template <typename TAction> std::string stderr_of(TAction action)
{
    testing::internal::CaptureStderr();
    action();
    return testing::internal::GetCapturedStderr();
}

/* A fresh platform and host root per test, in UTC. Paths are plain ones. */
class TPlatformTest : public testing::Test {
protected:
    TPlatformTest();
    ~TPlatformTest() override;

    static std::string root() { return host_path(""); }
    static void write_file(const std::string &path, const std::string &text);
    static std::string read_file(const std::string &path); // "" when missing
    static bool exists(const std::string &path) { return std::filesystem::exists(host_path(path)); }
    static std::string log_text(const char *log) { return read_file(log); }
};

/* Standard error stays out of the test report. */
class TQuietTest : public TPlatformTest {
protected:
    TQuietTest() { testing::internal::CaptureStderr(); }
    ~TQuietTest() override { testing::internal::GetCapturedStderr(); }
    static std::string told() // on standard error since the last look
    {
        std::string text = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return text;
    }
    /* What `action` writes to standard error. */
    template <typename TAction> static std::string told_by(TAction action)
    {
        told();
        action();
        return told();
    }
};

} // namespace fake
