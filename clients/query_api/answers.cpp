#include "query_api/answers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <initializer_list>
#include <memory>

#include <json-c/json.h>

#include "base/json.h"
#include "query_api/clean_text.h"

namespace {

constexpr int kMaxDepth = 8;

TOutcome invalid(const std::string &text)
{
    return failure(TFault::kInvalid, "invalid answer: " + text);
}

TOutcome no_member(std::string_view key)
{
    return invalid("\"" + std::string(key) + "\" is missing or invalid");
}

std::string_view view(json_object *text)
{
    return {json_object_get_string(text), static_cast<size_t>(json_object_get_string_len(text))};
}

/* The member; null if it is missing or of another type. */
json_object *member(json_object *object, const char *key, json_type type)
{
    json_object *found = nullptr;
    return json_object_object_get_ex(object, key, &found) && json_object_is_type(found, type) ? found : nullptr;
}

TOutcome parse(std::string_view text, TJson *out)
{
    const std::unique_ptr<json_tokener, decltype(&json_tokener_free)> tokener(json_tokener_new_ex(kMaxDepth),
                                                                              json_tokener_free);
    if (tokener == nullptr)
        return failure(TFault::kInternal, "out of memory");
    TJson root(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    const size_t end = json_tokener_get_parse_end(tokener.get());
    if (root == nullptr || json_tokener_get_error(tokener.get()) != json_tokener_success ||
        text.find_first_not_of(" \t\r\n", end) != std::string_view::npos)
        return invalid("not JSON");
    if (!json_object_is_type(root.get(), json_type_object))
        return invalid("not a JSON object");
    *out = std::move(root);
    return {};
}

std::string_view meaning(int64_t code)
{
    switch (code) {
    case -2:
        return " (that part of the monitor is not running)";
    case -3:
        return " (no such method)";
    case -4:
        return " (method or name is missing)";
    case -6:
        return " (the count is negative)";
    default:
        return "";
    }
}

/* The code under `key`: done when it is 0. */
TOutcome check_code(json_object *root, const char *key)
{
    json_object *const code = member(root, key, json_type_int);
    if (code == nullptr)
        return no_member(key);
    const int64_t value = json_object_get_int64(code);
    if (value != 0)
        return failure(TFault::kRefused,
                       "the monitor answered with code " + std::to_string(value).append(meaning(value)));
    return {};
}

/* Parses an answer in the common envelope; *data is lent by *root. */
TOutcome open(std::string_view text, json_type type, TJson *root, json_object **data)
{
    TOutcome outcome = parse(text, root);
    if (outcome.ok())
        outcome = check_code(root->get(), "return");
    if (!outcome.ok())
        return outcome;
    *data = member(root->get(), "data", type);
    return *data != nullptr ? TOutcome{} : no_member("data");
}

/* A list of names, each no longer than the monitor accepts in a request. */
bool names_take(json_object *parent, const char *key, std::vector<std::string> *out)
{
    constexpr int kMaxName = 255;
    json_object *const list = member(parent, key, json_type_array);
    if (list == nullptr || json_object_array_length(list) > kMaxNames)
        return false;
    for (size_t i = 0; i < json_object_array_length(list); ++i) {
        json_object *const name = json_object_array_get_idx(list, i);
        if (!json_object_is_type(name, json_type_string) || json_object_get_string_len(name) > kMaxName)
            return false;
        out->push_back(clean_text(view(name), kMaxName));
    }
    return true;
}

/* A whole number that is not negative, as a text or as a number. */
bool count_take(json_object *parent, const char *key, int64_t *out)
{
    json_object *found = nullptr;
    if (!json_object_object_get_ex(parent, key, &found))
        return false;
    if (json_object_is_type(found, json_type_int)) {
        *out = json_object_get_int64(found);
        return *out >= 0;
    }
    if (!json_object_is_type(found, json_type_string))
        return false;
    const std::string_view text = view(found);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *out);
    return error == std::errc() && end == text.data() + text.size() && *out >= 0;
}

bool figure_take(json_object *value, TFigure *out)
{
    return json_object_is_type(value, json_type_string) && figure_parse(view(value), out);
}

TOutcome state_take(json_object *parent, const char *key, std::initializer_list<std::string_view> words, TStateAt *out)
{
    TStateAt taken;
    if (!count_take(parent, "utc_time", &taken.utc_s))
        return no_member("utc_time");
    json_object *const word = member(parent, key, json_type_string);
    if (word == nullptr || std::find(words.begin(), words.end(), view(word)) == words.end())
        return no_member(key);
    taken.state = view(word);
    *out = std::move(taken);
    return {};
}

TOutcome answer_state(std::string_view text, const char *key, std::initializer_list<std::string_view> words,
                      TStateAt *out)
{
    TJson root;
    json_object *data = nullptr;
    const TOutcome outcome = open(text, json_type_object, &root, &data);
    return outcome.ok() ? state_take(data, key, words, out) : outcome;
}

/* One character for each channel, each one of `allowed`. */
bool flags_take(json_object *parent, const char *key, std::string_view allowed, std::string_view *out)
{
    json_object *const flags = member(parent, key, json_type_string);
    if (flags == nullptr)
        return false;
    *out = view(flags);
    return out->size() == kChannels && out->find_first_not_of(allowed) == std::string_view::npos;
}

} // namespace

TOutcome answer_status(std::string_view text, TStatus *out)
{
    TJson root;
    TOutcome outcome = parse(text, &root);
    if (outcome.ok())
        outcome = check_code(root.get(), "return");
    if (!outcome.ok())
        return outcome;
    TStatus taken;
    json_object *const cpu = member(root.get(), "cpu_info", json_type_object);
    if (cpu == nullptr || !names_take(cpu, "core_list", &taken.cores))
        return no_member("core_list");
    if (!names_take(root.get(), "disk_info", &taken.devices))
        return no_member("disk_info");
    if (!names_take(root.get(), "network_info", &taken.interfaces))
        return no_member("network_info");
    if (!names_take(root.get(), "daemon_list", &taken.services))
        return no_member("daemon_list");
    *out = std::move(taken);
    return {};
}

TOutcome answer_figures(std::string_view text, TKind kind, bool average, TFigures *out)
{
    TJson root;
    json_object *data = nullptr;
    TOutcome outcome = open(text, json_type_object, &root, &data);
    if (!outcome.ok())
        return outcome;
    TFigures taken;
    for (const TFigureSpec &spec : figures_of(kind)) {
        if (average && spec.now_only)
            continue;
        TFigure value;
        if (!figure_take(member(data, spec.key.data(), json_type_string), &value))
            return no_member(spec.key);
        taken.all.push_back({&spec, value});
    }
    *out = std::move(taken);
    return {};
}

TOutcome answer_series(std::string_view text, TKind kind, TSeries *out)
{
    constexpr size_t kMaxPoints = 15;
    TJson root;
    json_object *data = nullptr;
    TOutcome outcome = open(text, json_type_object, &root, &data);
    if (!outcome.ok())
        return outcome;
    TSeries taken;
    for (const TFigureSpec &spec : figures_of(kind)) {
        if (spec.now_only)
            continue;
        json_object *const list = member(data, spec.key.data(), json_type_array);
        const size_t count = list != nullptr ? json_object_array_length(list) : 0;
        if (list == nullptr || count > kMaxPoints || (!taken.rows.empty() && count != taken.rows[0].points.size()))
            return no_member(spec.key);
        TSeries::TRow row{&spec, std::vector<TFigure>(count)};
        for (size_t i = 0; i < count; ++i) {
            if (!figure_take(json_object_array_get_idx(list, i), &row.points[i]))
                return no_member(spec.key);
        }
        taken.rows.push_back(std::move(row));
    }
    *out = std::move(taken);
    return {};
}

TOutcome answer_disks(std::string_view text, TStateAt *out)
{
    return answer_state(text, "disk_update", {"normal", "hour_warning", "warning", "error"}, out);
}

TOutcome answer_fans(std::string_view text, TStateAt *out)
{
    return answer_state(text, "fan_update", {"normal", "error"}, out);
}

TOutcome answer_recording(std::string_view text, TStateAt *out)
{
    TJson root; // an answer without envelope
    const TOutcome outcome = parse(text, &root);
    return outcome.ok() ? state_take(root.get(), "camera_recording_update", {"normal", "error"}, out) : outcome;
}

TOutcome answer_hardware(std::string_view text, std::string *out)
{
    TJson root;
    json_object *data = nullptr;
    TOutcome outcome = open(text, json_type_object, &root, &data);
    if (!outcome.ok())
        return outcome;
    json_object *const words = member(data, "sys_health", json_type_string);
    if (words == nullptr)
        return no_member("sys_health");
    *out = clean_text(view(words));
    return {};
}

TOutcome answer_cameras(std::string_view text, TCameraStat *out)
{
    TJson root;
    json_object *data = nullptr;
    TOutcome outcome = open(text, json_type_object, &root, &data);
    if (!outcome.ok())
        return outcome;
    TCameraStat taken;
    std::string_view states;
    std::string_view changes;
    if (!flags_take(data, "cam_stat", "012", &states))
        return no_member("cam_stat");
    if (!flags_take(data, "conf_changed", "01", &changes))
        return no_member("conf_changed");
    if (!count_take(data, "interval", &taken.interval_ms))
        return no_member("interval");
    if (!count_take(data, "timestamp", &taken.time_ms))
        return no_member("timestamp");
    for (size_t i = 0; i < kChannels; ++i) {
        taken.state[i] = static_cast<TCamera>(states[i]);
        taken.changed[i] = changes[i] == '1';
    }
    *out = std::move(taken);
    return {};
}

TOutcome answer_channels(std::string_view text, std::vector<TChannel> *out)
{
    TJson root;
    json_object *list = nullptr;
    TOutcome outcome = open(text, json_type_array, &root, &list);
    if (!outcome.ok())
        return outcome;
    const size_t count = json_object_array_length(list);
    if (count > kChannels)
        return no_member("data");
    std::vector<TChannel> taken;
    for (size_t i = 0; i < count; ++i) {
        json_object *const one = json_object_array_get_idx(list, i);
        json_object *const id = json_object_is_type(one, json_type_object) ? member(one, "id", json_type_int) : nullptr;
        const int64_t number = id != nullptr ? json_object_get_int64(id) : -1;
        if (number < 0 || number >= static_cast<int64_t>(kChannels) ||
            (!taken.empty() && number <= static_cast<int64_t>(taken.back().id)))
            return no_member("id");
        TChannel channel;
        channel.id = static_cast<size_t>(number);
        const std::array<std::pair<const char *, std::string *>, 7> texts = {{{"name", &channel.name},
                                                                              {"guid", &channel.guid},
                                                                              {"umsid", &channel.ums_id},
                                                                              {"ip", &channel.ip},
                                                                              {"port", &channel.port},
                                                                              {"brand", &channel.brand},
                                                                              {"ums_name", &channel.ums_name}}};
        for (const auto &[key, value] : texts) {
            json_object *const words = member(one, key, json_type_string);
            if (words == nullptr)
                return no_member(key);
            *value = clean_text(view(words));
        }
        taken.push_back(std::move(channel));
    }
    *out = std::move(taken);
    return {};
}

TOutcome answer_done(std::string_view text, const char *key)
{
    TJson root;
    const TOutcome outcome = parse(text, &root);
    return outcome.ok() ? check_code(root.get(), key) : outcome;
}

std::string camera_word(TCamera state)
{
    switch (state) {
    case TCamera::kConnected:
        return "connected";
    case TCamera::kFailed:
        return "failed";
    case TCamera::kAbsent:
        break;
    }
    return "absent";
}
