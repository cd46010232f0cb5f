#include "platform/stock/storage/smartctl.h"

#include <algorithm>
#include <json-c/json.h>
#include <limits>

#include "base/json.h"

namespace {

constexpr int kCommandLineBit = 0x01;
constexpr int kOpenBit = 0x02;
constexpr int kCommandFailedBit = 0x04;
constexpr int kAllBits = 0xff;
constexpr int64_t kWholeLifePercent = 100;

std::optional<int32_t> hours_of(json_object *value)
{
    if (!json_object_is_type(value, json_type_int) || json_object_get_int64(value) < 0)
        return std::nullopt;
    return static_cast<int32_t>(std::min<int64_t>(json_object_get_int64(value), std::numeric_limits<int32_t>::max()));
}

bool is_text(json_object *value, std::string_view text)
{
    return json_object_is_type(value, json_type_string) && json_object_get_string(value) == text;
}

/* Calls visit with each element if the value is an array. */
template <typename TVisit> void each(json_object *array, TVisit visit)
{
    if (!json_object_is_type(array, json_type_array))
        return;
    for (size_t i = 0; i < json_object_array_length(array); ++i)
        visit(json_object_array_get_idx(array, i));
}

bool attribute_fails(json_object *document)
{
    bool fails = false;
    each(json_member(json_member(document, "ata_smart_attributes"), "table"),
         [&](json_object *attribute) { fails |= is_text(json_member(attribute, "when_failed"), "now"); });
    return fails;
}

/* Whether one of smartctl's messages contains one of the texts. */
bool has_message(json_object *document, std::initializer_list<std::string_view> texts)
{
    bool found = false;
    each(json_member(json_member(document, "smartctl"), "messages"), [&](json_object *message) {
        json_object *text = json_member(message, "string");
        if (!json_object_is_type(text, json_type_string))
            return;
        const std::string_view said = json_object_get_string(text);
        found |= std::any_of(texts.begin(), texts.end(),
                             [&](std::string_view one) { return said.find(one) != std::string_view::npos; });
    });
    return found;
}

/* smartctl does not support the device, or the disk reports that it has no SMART. */
bool has_no_smart(json_object *document)
{
    json_object *available = json_member(json_member(document, "smart_support"), "available");
    return (json_object_is_type(available, json_type_boolean) && json_object_get_boolean(available) == 0) ||
           has_message(document, {"Unable to detect device type", "Unknown USB bridge", "Unsupported USB bridge",
                                  "lacks SMART capability"});
}

/* False when the document names no protocol. */
bool reading_of(json_object *document, TSmartReading *out)
{
    json_object *protocol = json_member(json_member(document, "device"), "protocol");
    /* The raw value of attribute 9 counts minutes or half minutes on some disks, and holds other figures in its upper
     * bytes on others: smartctl has already converted it to hours. */
    if (is_text(protocol, "ATA") || is_text(protocol, "SCSI")) {
        out->power_on_hours = hours_of(json_member(json_member(document, "power_on_time"), "hours"));
        out->worn = attribute_fails(document);
    } else if (is_text(protocol, "NVMe")) {
        json_object *health = json_member(document, "nvme_smart_health_information_log");
        out->power_on_hours = hours_of(json_member(health, "power_on_hours"));
        json_object *used = json_member(health, "percentage_used");
        out->worn = json_object_is_type(used, json_type_int) && json_object_get_int64(used) >= kWholeLifePercent;
    } else {
        return false;
    }
    json_object *passed = json_member(json_member(document, "smart_status"), "passed");
    if (json_object_is_type(passed, json_type_boolean))
        out->passed = json_object_get_boolean(passed) != 0;
    return true;
}

} // namespace

TSmartOutcome smart_outcome(int exit_status, std::string_view text, TSmartReading *out)
{
    if (exit_status < 0 || exit_status > kAllBits)
        return TSmartOutcome::kUnreadable;
    const TJson document = json_parse_whole(text);
    const bool misused = (exit_status & kCommandLineBit) != 0;
    const bool closed = (exit_status & kOpenBit) != 0;
    if (!misused && closed && (document == nullptr || has_message(document.get(), {"Device is in "})))
        return TSmartOutcome::kAsleep;
    if (has_no_smart(document.get()))
        return TSmartOutcome::kNoSmart;
    TSmartReading reading;
    if (misused || closed || !reading_of(document.get(), &reading))
        return TSmartOutcome::kUnreadable;
    if (!reading.passed.has_value() && !reading.power_on_hours.has_value() && !reading.worn)
        return (exit_status & kCommandFailedBit) != 0 ? TSmartOutcome::kUnreadable : TSmartOutcome::kNoSmart;
    *out = reading;
    return TSmartOutcome::kRead;
}
