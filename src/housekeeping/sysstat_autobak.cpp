#include "housekeeping/sysstat_autobak.h"

#include "base/thread.h"
#include "common/debug_log.h"
#include "common/local_time.h"
#include "common/watcher.h"
#include "platform/kestrel.h"
#include "platform/logging.h"

namespace {

constexpr const char *kSource = "sysstat_autobak";
constexpr const char *kBackupTool = "/usr/local/cmsbin/cfg_bak_tool";
constexpr const char *kBackupFolder = "/share/OstraSurveillanceSys/AutoDailyConfigBack";
constexpr int kTimeLimitS = 3600;
constexpr int kBackupFailed = 0x4004000A;
constexpr size_t kDisplayPathSize = 128;

int g_last_minute = -1; // the sampling round's alone

void do_autobak()
{
    const TToolTimeLimit limit(kTimeLimitS);
    if (kestrel_exec(0, 0, 0, kBackupTool, "backup", nullptr) == 0)
        return;
    log_info info;
    info.code = kBackupFailed;
    info.source_address = "127.0.0.1";
    info.user = "System";
    info.args[0] = autobak_display_path(kBackupFolder);
    const long long result = logtool_send_surveillance_log(info);
    if (result != 0)
        log_File_Debug(kLogMain, "%s:%s (%d) logtool_send_surveillance_log failed (%lld), str_display_path:%s \n",
                       kSource, "do_autobak", 84, result, info.args[0].c_str());
}

void do_cache_mount_autobak()
{
    const TToolTimeLimit limit(kTimeLimitS);
    (void)kestrel_exec(0, 0, 0, kBackupTool, "backup", "-c", nullptr);
}

/* In a detached thread: the backups run beside each other and beside the rounds that
 * follow. */
void start_backup(const char *thread, void (*body)(), const TStartFailure &failure)
{
    if (const int error = thread_start_detached(thread, body); error != 0)
        start_failure_log(failure, error);
}

} // namespace

bool autobak_due(int *last_minute, const struct tm &now)
{
    if (now.tm_min == *last_minute)
        return false;
    *last_minute = now.tm_min;
    return now.tm_hour == 0 && now.tm_min == 45;
}

std::string autobak_display_path(std::string_view folder)
{
    const size_t first = folder.find('/');
    const size_t second = first == std::string_view::npos ? first : folder.find('/', first + 1);
    if (second == std::string_view::npos)
        return "";
    std::string_view path = folder.substr(second + 1);
    path = path.substr(0, path.find_last_not_of('/') + 1);
    return path.size() < kDisplayPathSize ? std::string(path) : "";
}

int sysstat_autobak_check()
{
    if (!autobak_due(&g_last_minute, local_time_of(wall_clock_s())))
        return 0;
    start_backup("AUTOBAK-worker", do_autobak, {kLogMain, kSource, "sysstat_autobak_thread_start", 100});
    start_backup("AUTOBAK_CM-worker", do_cache_mount_autobak,
                 {kLogMain, kSource, "sysstat_cache_mount_autobak_thread_start", 125});
    return 0;
}
