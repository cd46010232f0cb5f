#include "platform/stock/hub/pal_vbus_body.h"

#include <cerrno>
#include <syslog.h>

#include "base/json.h"

namespace {

constexpr size_t kMaxShown = 256; // of an unreadable answer

/* False when out of memory; `value` is released then. */
bool give(json_object *object, const char *key, json_object *value)
{
    TJson owner(value);
    if (object == nullptr || value == nullptr || json_object_object_add(object, key, value) != 0)
        return false;
    (void)owner.release(); // owned by the object now
    return true;
}

json_object *text_value(const std::string &text)
{
    return json_object_new_string_len(text.data(), static_cast<int>(text.size()));
}

/* Null is a value in an array. */
bool append(json_object *array, json_object *value)
{
    TJson owner(value);
    if (json_object_array_add(array, value) != 0)
        return false;
    (void)owner.release();
    return true;
}

std::string whole_body(const char *key, TJson array)
{
    const TJson root(json_object_new_object());
    if (!give(root.get(), key, array.release()))
        return {};
    const char *text = json_object_to_json_string_ext(root.get(), JSON_C_TO_STRING_PLAIN);
    return text != nullptr ? text : "";
}

} // namespace

std::string vbus_notify_body(std::span<const char *const> texts)
{
    TJson array(json_object_new_array());
    for (const char *text : texts) {
        json_object *value = text != nullptr ? json_object_new_string(text) : nullptr;
        if (array == nullptr || (text != nullptr && value == nullptr) || !append(array.get(), value))
            return {};
    }
    return whole_body("texts", std::move(array));
}

std::string vbus_rules_body(const t_vbus_reverse_proxy_info &request)
{
    TJson array(json_object_new_array());
    for (const t_vbus_reverse_proxy_rule_info &rule : request.rules) {
        TJson object(json_object_new_object());
        if (array == nullptr || !give(object.get(), "GUID", text_value(rule.guid)) ||
            !give(object.get(), "rule_type", json_object_new_int(rule.rule_type)) ||
            !give(object.get(), "bs_id", text_value(rule.bs_id)) ||
            !give(object.get(), "value", json_object_new_int(rule.value)) || !append(array.get(), object.release()))
            return {};
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
    for (const char *text : texts) {
        line.append(line.empty() ? "" : " ");
        line.append(text != nullptr ? text : "-");
    }
    return line;
}

int vbus_log_priority(const char *level)
{
    const std::string_view text = level != nullptr ? level : "";
    if (text.find("ERROR") != std::string_view::npos)
        return LOG_ERR;
    return text.find("WARN") != std::string_view::npos ? LOG_WARNING : LOG_NOTICE;
}
