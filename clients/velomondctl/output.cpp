#include "velomondctl/output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include <json-c/json.h>
#include <unistd.h>

#include "base/json.h"
#include "query_api/clean_text.h"

namespace {

/* The shortest text that reads back as the same number, without exponent. */
std::string exact_text(double value)
{
    std::array<char, 400> text{}; // the largest number has 309 digits
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr;
    return {text.data(), end};
}

json_object *json_of(const TCell &value)
{
    if (const auto *text = std::get_if<std::string>(&value))
        return json_object_new_string_len(text->data(), static_cast<int>(text->size()));
    if (const auto *number = std::get_if<double>(&value))
        return std::isfinite(*number) ? json_object_new_double_s(*number, exact_text(*number).c_str()) : nullptr;
    if (const auto *count = std::get_if<int64_t>(&value))
        return json_object_new_int64(*count);
    if (const auto *flag = std::get_if<bool>(&value))
        return json_object_new_boolean(*flag ? 1 : 0);
    return nullptr; // json-c's null
}

TJson json_of(const TTable &table)
{
    TJson list(json_object_new_array());
    for (const auto &row : table.rows) {
        TJson one(json_object_new_object());
        for (size_t i = 0; i < row.size(); ++i)
            json_object_object_add(one.get(), table.columns[i].key.c_str(), json_of(row[i]));
        json_object_array_add(list.get(), one.release());
    }
    return list;
}

std::string json_text_of(json_object *value)
{
    constexpr int kFlags = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;
    return std::string(json_object_to_json_string_ext(value, kFlags)) + "\n";
}

std::string csv_text(const TCell &value)
{
    if (const auto *flag = std::get_if<bool>(&value))
        return *flag ? "1" : "0";
    if (const auto *number = std::get_if<double>(&value))
        return exact_text(*number);
    if (const auto *count = std::get_if<int64_t>(&value))
        return std::to_string(*count);
    const auto *text = std::get_if<std::string>(&value);
    if (text == nullptr || text->find_first_of(",\"\r\n") == std::string::npos)
        return text != nullptr ? *text : "";
    std::string quoted = "\"";
    for (const char c : *text)
        quoted.append(c == '"' ? 2 : 1, c);
    return quoted + "\"";
}

std::string csv_of(const TTable &table)
{
    std::string text;
    for (size_t i = 0; i < table.columns.size(); ++i)
        text += (i > 0 ? "," : "") + table.columns[i].key;
    text += '\n';
    for (const auto &row : table.rows) {
        for (size_t i = 0; i < row.size(); ++i)
            text += (i > 0 ? "," : "") + csv_text(row[i]);
        text += '\n';
    }
    return text;
}

/* Counts are shown without decimals. */
int decimals(std::string_view unit)
{
    return unit == "%" || unit == "ms" || unit == "1/s" || unit == "kB/s" ? 1 : 0;
}

std::string aligned(const TTable &table)
{
    std::vector<size_t> widths;
    std::vector<std::vector<std::string>> lines(1);
    for (const TColumn &column : table.columns) {
        lines[0].push_back(column.head + (column.unit.empty() ? "" : "(" + std::string(column.unit) + ")"));
        widths.push_back(lines[0].back().size());
    }
    std::vector<bool> right(table.columns.size(), !table.rows.empty());
    for (const auto &row : table.rows) {
        lines.emplace_back();
        for (size_t i = 0; i < row.size(); ++i) {
            lines.back().push_back(number_text(row[i], decimals(table.columns[i].unit)));
            widths[i] = std::max(widths[i], text_columns(lines.back().back()));
            right[i] =
                right[i] && !std::holds_alternative<std::string>(row[i]) && !std::holds_alternative<bool>(row[i]);
        }
    }
    std::string text;
    for (const auto &line : lines) {
        std::string one;
        for (size_t i = 0; i < line.size(); ++i)
            one += (i > 0 ? "  " : "") + text_fitted(line[i], widths[i], right[i]);
        one.erase(one.find_last_not_of(' ') + 1);
        text += one + "\n";
    }
    return text;
}

std::string time_as(const char *format, const std::tm &time)
{
    std::array<char, 64> text{};
    (void)strftime(text.data(), text.size(), format, &time);
    return text.data();
}

} // namespace

TCell cell(const TFigure &figure)
{
    return figure ? TCell(*figure) : TCell();
}

std::string table_text(const TTable &table, TFormat format)
{
    switch (format) {
    case TFormat::kJson:
        return json_text_of(json_of(table).get());
    case TFormat::kCsv:
        return csv_of(table);
    case TFormat::kTable:
        break;
    }
    return aligned(table);
}

struct TJsonObject::TImpl {
    TJson object{json_object_new_object()};
};

TJsonObject::TJsonObject() : m_impl(std::make_unique<TImpl>()) {}
TJsonObject::~TJsonObject() = default;
TJsonObject::TJsonObject(TJsonObject &&) noexcept = default;
TJsonObject &TJsonObject::operator=(TJsonObject &&) noexcept = default;

void TJsonObject::add(const std::string &key, const TCell &value)
{
    json_object_object_add(m_impl->object.get(), key.c_str(), json_of(value));
}

void TJsonObject::add(const std::string &key, const TTable &rows)
{
    json_object_object_add(m_impl->object.get(), key.c_str(), json_of(rows).release());
}

void TJsonObject::add(const std::string &key, TJsonObject value)
{
    json_object_object_add(m_impl->object.get(), key.c_str(), value.m_impl->object.release());
}

std::string TJsonObject::text() const
{
    return json_text_of(m_impl->object.get());
}

std::string number_text(const TCell &value, int decimals)
{
    if (const auto *text = std::get_if<std::string>(&value))
        return *text;
    if (const auto *flag = std::get_if<bool>(&value))
        return *flag ? "yes" : "no";
    if (const auto *count = std::get_if<int64_t>(&value))
        return std::to_string(*count);
    const auto *number = std::get_if<double>(&value);
    if (number == nullptr)
        return "-";
    std::array<char, 400> text{};
    (void)snprintf(text.data(), text.size(), "%.*f", decimals, *number);
    return text.data();
}

std::string size_text(const TFigure &bytes)
{
    if (!bytes)
        return "-";
    constexpr std::array kPrefixes = {"B", "kB", "MB", "GB", "TB", "PB"};
    double value = *bytes;
    size_t prefix = 0;
    while (value >= 999.5 && prefix + 1 < kPrefixes.size()) {
        value /= 1000;
        ++prefix;
    }
    std::array<char, 64> text{};
    (void)snprintf(text.data(), text.size(), prefix > 0 && value < 99.95 ? "%.1f %s" : "%.0f %s", value,
                   kPrefixes[prefix]);
    return text.data();
}

std::string time_text(int64_t utc_s)
{
    const std::time_t time = utc_s;
    std::tm parts{};
    if (utc_s == 0 || localtime_r(&time, &parts) == nullptr)
        return "never";
    return time_as("%Y-%m-%d %H:%M:%S", parts);
}

std::string time_text_utc(int64_t utc_s)
{
    const std::time_t time = utc_s;
    std::tm parts{};
    return gmtime_r(&time, &parts) != nullptr ? time_as("%Y-%m-%dT%H:%M:%SZ", parts) : "never";
}

std::string toned(std::string_view text, TTone tone, bool colour)
{
    constexpr std::array kCodes = {"", "\033[32m", "\033[33m", "\033[1;31m", "\033[2m", "\033[1m"};
    const std::string plain(text);
    return colour && tone != TTone::kPlain ? kCodes[static_cast<size_t>(tone)] + plain + "\033[0m" : plain;
}

TTone tone_of_state(std::string_view state)
{
    if (state == "normal")
        return TTone::kGood;
    return state == "error" ? TTone::kBad : TTone::kWarning;
}

TOutcome put_out(std::string_view text)
{
    if (fwrite(text.data(), 1, text.size(), stdout) == text.size() && fflush(stdout) == 0)
        return {};
    return failure(TFault::kOutput, std::string("cannot write the result: ") + strerror(errno));
}

bool stdout_takes_colour()
{
    const char *const terminal = getenv("TERM");
    const char *const no_colour = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb" &&
           (no_colour == nullptr || *no_colour == '\0');
}
