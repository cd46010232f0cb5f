#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <thread>
#include <unistd.h>

#include "base/text.h"
#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/config/ini_file.h"
#include "platform/stock/config/state_changes.h"
#include "platform/time_stamp.h"

namespace {

constexpr const char *kSystemFile = "/tarn/etc/config/Tarnix.conf";

/* How long, and at what interval, a file that may be half written is read again: a little longer than it counts as just
 * changed. */
constexpr uint64_t kUnsettledMs = 2500;
constexpr auto kUnsettledPause = std::chrono::milliseconds(50);

/* Returns 0; 1 when the file names no server; -errno when the file is at fault. The name is sent to other services, so
 * half a name, or the default for one that is about to be written, would be worse than a late one. */
int read_server_name(std::string *name)
{
    const uint64_t begin_ms = current_time_stamp_mono_r();
    do {
        TIni ini;
        std::string value;
        int result = ini_load(kSystemFile, &ini);
        if (result == 0)
            result = ini.get("System", "Server Name", &value);
        if (result == 0 && value.empty())
            result = 1;
        const bool in_doubt = result == 1 || result == -EAGAIN || result == -EINVAL || !ini.ends_whole;
        if (!in_doubt || !ini_changed_just_now(kSystemFile)) {
            if (result == 0)
                *name = std::move(value);
            return result;
        }
        std::this_thread::sleep_for(kUnsettledPause);
    } while (current_time_stamp_mono_r() - begin_ms < kUnsettledMs && !platform_interrupted());
    return -EAGAIN;
}

} // namespace

uint32_t PAL_auth_get_auth(t_auth &auth)
{
    /* This process itself reads everything behind these calls: the token is never checked. */
    auth = {"local", ""};
    return 0;
}

/* The time zone and the time server of the reply are unchanged: they have no source here and are never used. */
uint32_t PAL_system_get_syssetting(const t_auth & /*auth*/, const t_system & /*request*/, t_system &reply)
{
    static TStateChanges outcomes;
    const int result = read_server_name(&reply.server_name);
    if (outcomes.is_news(kSystemFile, std::min(result, 0)))
        log_Debug("%s cannot be used: %s", kSystemFile, error_text(-result).c_str());
    if (result <= 0)
        return static_cast<uint32_t>(-result);
    char host[HOST_NAME_MAX + 1] = "";
    if (gethostname(host, sizeof(host) - 1) != 0) {
        const int error = errno;
        log_Debug("the host name cannot be read: %s", error_text(error).c_str());
        return static_cast<uint32_t>(error);
    }
    reply.server_name = host;
    return 0;
}
