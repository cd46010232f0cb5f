#include "platform/stock/hub/pal_vbus.h"

#include <cerrno>
#include <functional>
#include <new>
#include <syslog.h>

#include "platform/logging.h"
#include "platform/ssci.h"
#include "platform/stock/hub/hub.h"

namespace {

constexpr int kTimeoutS = 5;
constexpr size_t kMaxShown = 256; // of an unreadable answer

std::string whole_body(const char *key, TJson array)
{
    const TJson root(json_object_new_object());
    json_give(root.get(), key, std::move(array));
    return hub_text(root);
}

/* Returns 0, or the result of the call, which is logged. */
uint32_t post(const char *path, std::string *answer, const std::function<std::string()> &body)
{
    try {
        const THttpPeer hub = hub_peer();
        const long long result = ssci_POST_request(hub.host.c_str(), hub.port, path, body(), answer, kTimeoutS);
        if (result != SSCI_OK)
            log_Debug("POST %s to the hub failed (%lld)", path, result);
        return static_cast<uint32_t>(result);
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

} // namespace

std::string vbus_notify_body(std::span<const char *const> texts)
{
    TJson array(json_object_new_array());
    for (const char *text : texts) {
        if (text != nullptr)
            json_append_text(array.get(), text);
        else if (array == nullptr || json_object_array_add(array.get(), nullptr) != 0)
            throw std::bad_alloc();
    }
    return whole_body("texts", std::move(array));
}

std::string vbus_rules_body(const t_vbus_reverse_proxy_info &request)
{
    TJson array(json_object_new_array());
    for (const t_vbus_reverse_proxy_rule_info &rule : request.rules) {
        TJson object(json_object_new_object());
        json_give_text(object.get(), "GUID", rule.guid);
        json_give(object.get(), "rule_type", TJson(json_object_new_int(rule.rule_type)));
        json_give_text(object.get(), "bs_id", rule.bs_id);
        json_give(object.get(), "value", TJson(json_object_new_int(rule.value)));
        json_append(array.get(), std::move(object));
    }
    return whole_body("rules", std::move(array));
}

uint32_t vbus_rules_answer(std::string_view body, std::string *response)
{
    const TJson root = json_parse_whole(body);
    json_object *text = json_member(root.get(), "resp");
    *response = json_object_is_type(text, json_type_string) ? std::string(json_object_get_string(text))
                                                            : std::string(body.substr(0, kMaxShown));
    json_object *ret = json_member(root.get(), "ret");
    return json_object_is_type(ret, json_type_int) ? static_cast<uint32_t>(json_object_get_int(ret)) : EPROTO;
}

std::string vbus_notify_line(std::span<const char *const> texts)
{
    std::string line;
    for (const char *text : texts)
        line.append(line.empty() ? "" : " ").append(text != nullptr ? text : "-");
    return line;
}

int vbus_log_priority(const char *level)
{
    const std::string_view text = level != nullptr ? level : "";
    if (text.find("ERROR") != std::string_view::npos)
        return LOG_ERR;
    return text.find("WARN") != std::string_view::npos ? LOG_WARNING : LOG_NOTICE;
}

uint32_t PAL_vbus_nc_notify(const char *level, const char *type, const char *category, const char *code, const char *a1,
                            const char *a2, const char *a3, const char *a4, const char *a5, const char *a6,
                            const char *a7, const char *a8, const char *a9, const char *a10)
{
    const char *const texts[] = {level, type, category, code, a1, a2, a3, a4, a5, a6, a7, a8, a9, a10};
    syslog(vbus_log_priority(level), "%s", vbus_notify_line(texts).c_str());
    std::string answer;
    return post("/vbus/nc_notify", &answer, [&texts] { return vbus_notify_body(texts); });
}

uint32_t PAL_vbus_update_reverse_proxy(const t_vbus_reverse_proxy_info &request, t_vbus_reverse_proxy_info &answer)
{
    std::string body;
    const uint32_t result = post("/vbus/reverse_proxy", &body, [&request] { return vbus_rules_body(request); });
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
    return post("/vbus/ostrapro_disable", &answer, [] { return "{}"; });
}
