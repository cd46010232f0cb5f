#include <cerrno>
#include <climits>
#include <cstring>
#include <unistd.h>

#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/hwmon.h"
#include "platform/stock/ini_file.h"

namespace {

constexpr const char *kSystemFile = "/tarn/etc/config/Tarnix.conf";

} // namespace

uint32_t PAL_auth_get_auth(t_auth &auth)
{
    /* Everything behind these calls is read by this process itself: nobody asks
     * for a token. */
    auth = {"local", ""};
    return 0;
}

/* The time zone and the time server of the reply stay as they were: they have no
 * source here, and nobody asks for them. */
uint32_t PAL_system_get_syssetting(const t_auth & /*auth*/, const t_system & /*request*/, t_system &reply)
{
    T_INI ini;
    if (const int result = ini_load(kSystemFile, &ini); result != 0)
        log_Debug("%s cannot be used: %s", kSystemFile, strerror(-result));
    const std::string *name = ini.find("System", "Server Name");
    if (name != nullptr && !name->empty()) {
        reply.server_name = *name;
        return 0;
    }
    char host[HOST_NAME_MAX + 1] = "";
    if (gethostname(host, sizeof(host) - 1) != 0) {
        const int error = errno;
        log_Debug("the host name cannot be read: %s", strerror(error));
        return static_cast<uint32_t>(error);
    }
    reply.server_name = host;
    return 0;
}

uint32_t PAL_mgr_syshealth_info(const t_auth * /*auth*/, t_syshealth_info *info, std::string *text)
{
    std::vector<T_HWMON_FAN> fans;
    if (const int result = hwmon_fans(&fans); result != 0) {
        log_Debug("fans cannot be read: %s", strerror(-result));
        return static_cast<uint32_t>(-result);
    }
    t_syshealth_info health;
    for (const T_HWMON_FAN &fan : fans)
        health.fans.emplace_back(fan.name, hwmon_status(fan));
    health.text = hwmon_summary(health.fans);
    if (text != nullptr)
        *text = health.text;
    *info = std::move(health);
    return 0;
}
