#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "base/json.h"
#include "common/trace.h"
#include "stats/statManager.h"

/* Telling figures of records, which all kinds of statistics do in the same forms:
 * as an object, as a series per minute, as rows of a dump, as lines of a print. */

/* A figure of a record (a reading, a sum, or something computed from one): what
 * it is called where it is told, and its text. */
template <typename RECORD> struct T_FIGURE {
    const char *name;
    std::string (*text)(const RECORD &record);
};
template <typename RECORD> using T_FIGURES = std::span<const T_FIGURE<RECORD>>;

/* Texts of figures: a field as a whole number, as "%llu" and "%lld" have it. */
template <auto FIELD, typename RECORD> std::string figure_u64(const RECORD &record)
{
    return std::to_string(record.*FIELD);
}
template <auto FIELD, typename RECORD> std::string figure_i64(const RECORD &record)
{
    return std::to_string(static_cast<int64_t>(record.*FIELD));
}
/* A number with a fixed count of decimals, as "%.1f" has it. */
std::string figure_fixed(double value, int decimals);

/* An object with one text per figure. */
template <typename RECORD> TJson stat_object(std::type_identity_t<T_FIGURES<RECORD>> figures, const RECORD &record)
{
    TJson object(json_object_new_object());
    for (const auto &figure : figures)
        json_give_text(object.get(), figure.name, figure.text(record));
    return object;
}

/* An object with one array per figure and in each a point per minute, newest
 * first; without a history the arrays are empty. `convert` makes the record that
 * the figures are of from the sum of a minute. */
template <typename T, typename CONVERT = std::identity,
          typename RECORD = std::remove_cvref_t<std::invoke_result_t<CONVERT, const T &>>>
TJson stat_series(std::type_identity_t<T_FIGURES<RECORD>> figures, const std::optional<std::deque<T>> &history,
                  CONVERT convert = {})
{
    TJson object(json_object_new_object());
    std::vector<json_object *> arrays; // lent by the object
    for (const auto &figure : figures) {
        TJson array(json_object_new_array());
        arrays.push_back(array.get());
        json_give(object.get(), figure.name, std::move(array));
    }
    if (!history)
        return object;
    stat_per_minute(*history, [&](const T &minute) {
        auto &&record = convert(minute);
        for (size_t i = 0; i < figures.size(); ++i)
            json_append_text(arrays[i], figures[i].text(record));
    });
    return object;
}

/* Rows of a dump, one per figure: its name and a column per interval, newest
 * first, each after a comma and a blank. */
template <typename T, typename CONVERT = std::identity,
          typename RECORD = std::remove_cvref_t<std::invoke_result_t<CONVERT, const T &>>>
void stat_rows(std::string *text, std::type_identity_t<T_FIGURES<RECORD>> figures, const std::deque<T> &history,
               CONVERT convert = {})
{
    for (const auto &figure : figures) {
        text->append(figure.name);
        for (auto element = history.rbegin(); element != history.rend(); ++element)
            text->append(", ").append(figure.text(convert(*element)));
        text->push_back('\n');
    }
}

/* Lines on standard error, one per figure: four blanks, its name, its text. */
template <typename RECORD> void stat_print(std::type_identity_t<T_FIGURES<RECORD>> figures, const RECORD &record)
{
    for (const auto &figure : figures)
        tell("    %s%s\n", figure.name, figure.text(record).c_str());
}

/* A method of a kind's query operation. */
struct T_STAT_METHOD {
    const char *name;
    bool counted; // `type` is a count of intervals, 0 or more; else it is not looked at
    TJson (*answer)(const std::string &key, int count);
};

/* Has the method of that name answer into *out. kQueryOk, kQueryBadCount or
 * kQueryNoMethod; failures are told and leave *out as it is. */
int stat_answer(std::span<const T_STAT_METHOD> methods, const char *method, const char *type, const char *key,
                json_object **out);
