#include "housekeeping/sysstat_servername.h"

#include <cstdio>

#include "common/dashboard.h"
#include "common/debug_log.h"
#include "common/platform_call.h"
#include "common/watcher.h"
#include "housekeeping/file_watcher.h"

namespace {

constexpr const char *kSource = "sysstat_servername.cpp";
constexpr const char *kWatchedFile = "/tarn/etc/config/Tarnix.conf";
constexpr int kAttempts = 3;

std::string g_last_name; // the worker's alone

void servername_monitor_main(TWorker *self)
{
    self->run_once([] { (void)servername_changed(); }); // stores the name: the start is not a change
    /* A name that was not sent would count as known at the next start. */
    TFileWatcher watcher(kWatchedFile, [self] {
        const TMustComplete scope(self);
        do_handling();
    });
    const auto is_due = [&watcher] { return watcher.is_due(); };
    self->run_passes([&] {
        watcher.run();
        self->wait_due(is_due);
    });
    watcher.unregsiter_notify();
}

TWatcher g_watcher({"SVRNAME-worker", "servername_monitor_main", servername_monitor_main},
                   {kLogServerName, kSource, "servername_thread_start", 257});

} // namespace

int servername_thread_start()
{
    return g_watcher.start();
}

int servername_thread_stop()
{
    return g_watcher.stop();
}

uint32_t get_cur_servername(std::string *name)
{
    constexpr const char *kFunction = "get_cur_servername";
    t_auth auth;
    uint32_t result = PAL_auth_get_auth(auth);
    if (platform_failed(kLogServerName, kFunction, 294, "PAL_auth_get_auth", result))
        return result;
    t_system reply;
    result = PAL_system_get_syssetting(auth, t_system(), reply);
    if (platform_failed(kLogServerName, kFunction, 301, "PAL_system_get_syssetting", result))
        return result;
    *name = reply.server_name;
    return 0;
}

bool servername_changed()
{
    std::string name;
    for (int attempt = 0; attempt < kAttempts && get_cur_servername(&name) != 0; ++attempt) {
    }
    if (name == g_last_name)
        return false;
    g_last_name = name;
    return true;
}

void do_handling()
{
    if (!servername_changed())
        return;
    /* The receiver takes the name as it stands, unescaped. */
    char body[256];
    snprintf(body, sizeof(body), "{\"act\":\"refresh_nasname\",\"arg\":[\"%s\"]}", g_last_name.c_str());
    const long long result = dashboard_put("127.0.0.1", "logs/refreshNasPara", body);
    if (result != 0) // deliberately in the log of the disk checks
        log_File_Debug(kLogSmart, "%s:%s (%d) ssci_PUT_request failed (%lld)\n", kSource, "do_handling", 342, result);
}
