#include <cerrno>
#include <syslog.h>

#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/ssci.h"
#include "platform/stock/hub/pal_vbus_body.h"

namespace {

constexpr const char *kHubHost = "127.0.0.1";
constexpr int kHubPort = 10182;
constexpr int kTimeoutS = 5;

/* Returns 0, or the result of the call, which is logged. */
uint32_t post(const char *path, const std::string &body, std::string *answer)
{
    if (body.empty())
        return ENOMEM;
    const long long result = ssci_POST_request(kHubHost, kHubPort, path, body, answer, kTimeoutS);
    if (result != SSCI_OK)
        log_Debug("POST %s to the hub failed (%lld)", path, result);
    return static_cast<uint32_t>(result);
}

} // namespace

uint32_t PAL_vbus_nc_notify(const char *level, const char *type, const char *category, const char *code, const char *a1,
                            const char *a2, const char *a3, const char *a4, const char *a5, const char *a6,
                            const char *a7, const char *a8, const char *a9, const char *a10)
{
    const char *const texts[] = {level, type, category, code, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10};
    syslog(vbus_log_priority(level), "%s", vbus_notify_line(texts).c_str());
    std::string answer;
    return post("/vbus/nc_notify", vbus_notify_body(texts), &answer);
}

uint32_t PAL_vbus_update_reverse_proxy(const t_vbus_reverse_proxy_info &request, t_vbus_reverse_proxy_info &answer)
{
    std::string body;
    const uint32_t result = post("/vbus/reverse_proxy", vbus_rules_body(request), &body);
    if (result == 0)
        return vbus_rules_answer(body, &answer.response);
    if (result == SSCI_TRANSPORT_ERROR || result == SSCI_CANCELLED)
        answer.response = ssci_strerror(__ssci_errno());
    else if (body.empty())
        answer.response = "the hub refused";
    else
        (void)vbus_rules_answer(body, &answer.response); // from the body of the error response
    return result;
}

uint32_t PAL_vbus_ostrapro_disable()
{
    std::string answer;
    return post("/vbus/ostrapro_disable", "{}", &answer);
}
