#include "surveillance/proxy_rules.h"

#include <exception>
#include <json/json.h>
#include <memory>
#include <string_view>

#include "base/json_bounds.h"

namespace {

constexpr size_t kMaxText = 4096; // more than fits into a request or a file's name

/* Reads one member of an object; null counts as missing. False if it has another type or
 * range, which is tested first because the library throws on an impossible conversion. */
template <typename TValue> bool take(const Json::Value &object, const char *key, TValue *out)
{
    const Json::Value &member = object[key];
    if (member.is<TValue>())
        *out = member.as<TValue>();
    return member.is<TValue>() || member.isNull();
}

bool take_rule(const Json::Value &element, TProxyRule *rule)
{
    return element.isObject() && take(element, "GUID", &rule->guid) && take(element, "rule_type", &rule->rule_type) &&
           take(element, "last_access_time", &rule->last_access_time) &&
           take(element, "retention_time", &rule->retention_time) && take(element, "bs_id", &rule->bs_id) &&
           rule->guid.size() <= kMaxText && rule->bs_id.size() <= kMaxText;
}

TProxyAnswer read_answer(const Json::Value &root)
{
    TProxyAnswer answer;
    if (!root.isObject())
        return answer;
    (void)take(root, "err_code", &answer.err_code);
    const Json::Value &list = root["ReverseProxyRuleList"];
    if (!list.isArray())
        return answer;
    for (const Json::Value &element : list) {
        TProxyRule rule;
        if (take_rule(element, &rule))
            answer.rules.push_back(std::move(rule));
        else
            ++answer.unreadable;
    }
    return answer;
}

} // namespace

int proxy_answer_parse(const std::string &text, TProxyAnswer *answer, std::string *error)
{
    try {
        if (!json_is_bounded(text)) {
            *error = "too many values, or nested too deeply";
            return -1;
        }
        /* Not from a stream, of which the library makes two more copies. */
        Json::CharReaderBuilder readers;
        readers["collectComments"] = false; // they would be kept beside the values
        const std::unique_ptr<Json::CharReader> reader(readers.newCharReader());
        Json::Value root;
        if (!reader->parse(text.data(), text.data() + text.size(), &root, error))
            return -1;
        *answer = read_answer(root);
        return 0;
    } catch (const std::exception &failure) { // nested deeper than the parser goes
        *error = failure.what();
        return -1;
    }
}

int64_t proxy_remaining_ms(const TProxyRule &rule, uint64_t now_ms)
{
    /* The retention is a 32-bit figure also in ms and wraps above 35791 minutes; the
     * services that set up rules rely on it. Only unsigned arithmetic may wrap. */
    const auto retention_ms = static_cast<int32_t>(static_cast<uint32_t>(rule.retention_time) * 60000U);
    return static_cast<int64_t>(static_cast<uint64_t>(rule.last_access_time) + static_cast<uint64_t>(retention_ms) -
                                now_ms);
}

bool proxy_guid_is_name(const std::string &guid)
{
    return !guid.empty() && guid != "." && guid != ".." &&
           guid.find_first_of(std::string_view("/\0", 2)) == std::string::npos;
}
