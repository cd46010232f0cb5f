#include "velomondctl/check.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "query_api/clean_text.h"
#include "velomondctl/commands.h"

namespace {

struct TCheckName {
    std::string_view name, unit, words;
};
constexpr std::array kNames = {
    TCheckName{"disks", "", "disks"},
    TCheckName{"fans", "", "fans"},
    TCheckName{"recording", "", "recording"},
    TCheckName{"cameras", "", "cameras failed"},
    TCheckName{"cpu", "%", "cpu"},
    TCheckName{"memory", "%", "memory"},
    TCheckName{"swap", "%", "swap"},
    TCheckName{"volumes", "%", "fullest volume"},
    TCheckName{"latency", "ms", "latency"},
};

/* Alerts if the caller gives no ranges. */
constexpr std::array kDefaultWarn = {"disks=0", "cameras=0"};
constexpr std::array kDefaultCrit = {"disks=2", "fans=0", "recording=0"};

double disk_level(std::string_view state)
{
    constexpr std::array<std::string_view, 3> kStates = {"normal", "hour_warning", "warning"};
    return static_cast<double>(std::find(kStates.begin(), kStates.end(), state) - kStates.begin());
}

bool bound_parse(std::string_view text, double *out)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *out);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(*out);
}

/* 12.25 as 12.3 and 3 as 3. */
std::string short_text(double value)
{
    return number_text(value, std::abs(value - std::round(value)) < 0.05 ? 0 : 1);
}

std::string words_of(const TCheckName &one, const TSnapshot &now, double value)
{
    const std::string words(one.words);
    if (one.name == "disks")
        return words + " " + now.disks.state;
    if (one.name == "fans")
        return words + " " + now.fans.state;
    if (one.name == "recording")
        return words + " " + now.recording.state;
    if (one.name == "cameras")
        return short_text(value) + (value == 1 ? " camera failed" : " cameras failed");
    return words + " " + short_text(value) + (one.unit == "%" ? " %" : " " + std::string(one.unit));
}

/* Worse first: CRITICAL outweighs UNKNOWN. */
int weight(TLevel level)
{
    constexpr std::array kWeights = {0, 1, 3, 2};
    return kWeights[static_cast<size_t>(level)];
}

constexpr const char *kStart = "VELOMOND ";
constexpr std::array kLevelNames = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

int ended(TLevel level, const std::string &line)
{
    return put_out(line + "\n").ok() ? static_cast<int>(level) : static_cast<int>(TLevel::kUnknown);
}

int unknown(const std::string &text)
{
    return ended(TLevel::kUnknown, std::string(kStart) + "UNKNOWN - " + text);
}

} // namespace

bool alert_range_parse(std::string_view text, TAlertRange *out)
{
    TAlertRange range;
    range.text = text;
    if (!text.empty() && text.front() == '@') {
        range.inside = true;
        text.remove_prefix(1);
    }
    const size_t colon = text.find(':');
    const std::string_view start = colon == std::string_view::npos ? "0" : text.substr(0, colon);
    const std::string_view end = colon == std::string_view::npos ? text : text.substr(colon + 1);
    if (start == "~")
        range.start = -std::numeric_limits<double>::infinity();
    else if (!bound_parse(start, &range.start))
        return false;
    if (!(end.empty() && colon != std::string_view::npos) && !bound_parse(end, &range.end))
        return false;
    if (range.start > range.end)
        return false;
    *out = std::move(range);
    return true;
}

std::map<std::string, TFigure> check_values(const TSnapshot &now, const std::vector<TVolume> &volumes)
{
    std::map<std::string, TFigure> values;
    values["disks"] = disk_level(now.disks.state);
    values["fans"] = now.fans.state == "normal" ? 0 : 1;
    values["recording"] = now.recording.state == "normal" ? 0 : 1;
    values["cameras"] = static_cast<double>(now.cameras_failed());
    values["cpu"] = cpu_busy_percent(now.cpu);
    values["memory"] = memory_used_percent(now.memory);
    const TFigure swap = now.memory.get("SwapTotal");
    const TFigure free = now.memory.get("SwapFree");
    values["swap"] = swap && free && *swap > 0 ? TFigure(100.0 * (*swap - *free) / *swap) : TFigure();
    for (const TVolume &one : volumes)
        values["volumes"] = std::max(values["volumes"].value_or(0), one.mounted ? one.used_percent() : 100.0);
    for (const auto &one : now.devices) {
        for (const char *key : {"rd_latency", "wr_latency"})
            values["latency"] = std::max(values["latency"].value_or(0), one.now.get(key).value_or(0));
    }
    return values;
}

bool check_range_add(const std::string &text, TRanges *ranges)
{
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    TAlertRange range;
    if (equals == std::string::npos ||
        std::none_of(kNames.begin(), kNames.end(), [&name](const TCheckName &one) { return one.name == name; }) ||
        !alert_range_parse(std::string_view(text).substr(equals + 1), &range))
        return false;
    (*ranges)[name] = std::move(range);
    return true;
}

TCheckResult check_decide(const TSnapshot &now, const std::map<std::string, TFigure> &values, const TRanges &warn,
                          const TRanges &crit)
{
    TCheckResult result;
    std::string alerts;
    std::string calm;
    std::string figures;
    for (const TCheckName &one : kNames) {
        const auto value = values.find(std::string(one.name));
        const auto in_warn = warn.find(std::string(one.name));
        const auto in_crit = crit.find(std::string(one.name));
        const bool is_wanted = in_warn != warn.end() || in_crit != crit.end();
        TLevel level = TLevel::kOk;
        std::string words;
        if (value == values.end() || !value->second) {
            if (!is_wanted)
                continue;
            level = TLevel::kUnknown;
            words = std::string(one.words) + " unknown";
        } else {
            if (in_warn != warn.end() && in_warn->second.alerts(*value->second))
                level = TLevel::kWarning;
            if (in_crit != crit.end() && in_crit->second.alerts(*value->second))
                level = TLevel::kCritical;
            words = words_of(one, now, *value->second);
            figures += " " + std::string(one.name) + "=" + short_text(*value->second) + std::string(one.unit) + ";" +
                       (in_warn != warn.end() ? in_warn->second.text : "") + ";" +
                       (in_crit != crit.end() ? in_crit->second.text : "");
        }
        std::string *const list = level == TLevel::kOk ? &calm : &alerts;
        *list += (list->empty() ? "" : ", ") + words;
        if (weight(level) > weight(result.level))
            result.level = level;
    }
    result.line = std::string(kStart) + kLevelNames[static_cast<size_t>(result.level)] + " - " +
                  (alerts.empty() ? calm : alerts) + " |" + figures;
    return result;
}

int command_check(const TSettings &settings, const TCheckWanted &wanted)
{
    TRanges warn;
    TRanges crit;
    for (const char *one : kDefaultWarn)
        (void)check_range_add(one, &warn);
    for (const char *one : kDefaultCrit)
        (void)check_range_add(one, &crit);
    for (const auto &[texts, ranges] : {std::pair(&wanted.warn, &warn), std::pair(&wanted.crit, &crit)}) {
        for (const std::string &text : *texts) {
            if (!check_range_add(text, ranges))
                return unknown("invalid threshold: " + clean_text(text));
        }
    }
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TSnapshot now;
    const TOutcome outcome = snapshot_fetch(&api, &now);
    if (!outcome.ok())
        return unknown(outcome.text);
    const TCheckResult result =
        check_decide(now, check_values(now, settings.is_here() ? volumes_here() : std::vector<TVolume>()), warn, crit);
    return ended(result.level, result.line);
}
