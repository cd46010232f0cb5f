#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/json.h"
#include "common/history.h"
#include "common/query.h"
#include "stats/process_table.h"

/* What all kinds of statistics do in the same way: show records as an object, as a
 * series per minute, as rows of a dump and as lines of a print; answer a query; end. */

/* A figure of a record: its label in answers and prints, its text, and its label in
 * dumps. */
template <typename TRecord> struct TFigure {
    const char *label = nullptr;
    std::string (*text)(const TRecord &record) = nullptr;
    const char *row = label; // null: not in dumps
};
template <typename TRecord> using TFigures = std::span<const TFigure<TRecord>>;

/* Texts of figures: a field as a whole number, as "%llu" and "%lld" have it. */
template <auto kField, typename TRecord> std::string figure_u64(const TRecord &record)
{
    return std::to_string(record.*kField);
}
template <auto kField, typename TRecord> std::string figure_i64(const TRecord &record)
{
    return std::to_string(static_cast<int64_t>(record.*kField));
}

template <typename TRecord> TRecord stat_as_it_is(const TRecord &record)
{
    return record;
}

/* One way to show a record or a sum of records: what is computed from it (a mean, a
 * rate, or nothing), and the figures of the result. */
template <typename TRecord, typename TShown = TRecord> struct TStatView {
    TFigures<TShown> figures;
    TShown (*computed)(const TRecord &record) = stat_as_it_is<TRecord>;
};

/* The views of a kind's keys. */
template <typename TRecord, typename TShown = TRecord> struct TStatViews {
    TStatView<TRecord, TShown> system;
    TStatView<TRecord, TShown> process = system; // of the processes of the table

    const TStatView<TRecord, TShown> &of(const std::string &key) const
    {
        return is_daemon_name(key) ? process : system;
    }
};

/* The history of a key; empty for one that is not tracked. */
template <typename TRecord>
std::vector<TRecord> stat_history(const TStatManagerBase<TRecord> &manager, const std::string &key)
{
    return manager.copy_history(key).value_or(std::vector<TRecord>());
}

/* An object with one text per figure. */
template <typename TRecord, typename TShown>
TJson stat_object(const TStatView<TRecord, TShown> &view, const TRecord &record)
{
    const TShown shown = view.computed(record);
    TJson object(json_object_new_object());
    for (const auto &figure : view.figures)
        json_give_text(object.get(), figure.label, figure.text(shown));
    return object;
}

/* An object with one array per figure and in each a point per minute, newest first. */
template <typename TRecord, typename TShown>
TJson stat_series(const TStatView<TRecord, TShown> &view, const TMinutes<TRecord> &minutes)
{
    TJson object(json_object_new_object());
    std::vector<json_object *> arrays; // borrowed from the object
    arrays.reserve(view.figures.size());
    for (const auto &figure : view.figures) {
        TJson array(json_object_new_array_ext(static_cast<int>(minutes.count)));
        arrays.push_back(array.get());
        json_give(object.get(), figure.label, std::move(array));
    }
    for (const TRecord &minute : minutes.all()) {
        const TShown shown = view.computed(minute);
        for (size_t i = 0; i < arrays.size(); ++i)
            json_append_text(arrays[i], view.figures[i].text(shown));
    }
    return object;
}

/* A block of a dump: its title, a row of time stamps, a row per figure, an empty line.
 * A row is the label and a column per interval, newest first, each after a comma and a
 * blank. */
template <typename TRecord, typename TShown>
void stat_block(std::string *text, std::string_view title, const TStatView<TRecord, TShown> &view,
                const std::vector<TRecord> &history)
{
    text->append(title).append("\ntime_stamp(ms)");
    std::vector<TShown> columns;
    columns.reserve(history.size());
    for (auto interval = history.rbegin(); interval != history.rend(); ++interval) {
        text->append(", ").append(std::to_string(interval->tp_ms));
        columns.push_back(view.computed(*interval));
    }
    for (const auto &figure : view.figures) {
        if (figure.row == nullptr)
            continue;
        text->append("\n").append(figure.row);
        for (const TShown &column : columns)
            text->append(", ").append(figure.text(column));
    }
    text->append("\n\n");
}

/* The figures that a print shows, by the type of a record: one without a reading is the
 * system's. */
template <typename TRecord> struct TStatPrint {
    TFigures<TRecord> system, process = system;
};

/* Lines on standard error, one per figure: four blanks, its label, its text. */
template <typename TRecord> void stat_print(const TStatPrint<TRecord> &figures, const TRecord &record)
{
    bool is_process = false;
    if constexpr (requires { record.type; })
        is_process = record.type != 0;
    for (const auto &figure : is_process ? figures.process : figures.system)
        write_stderr("    %s%s\n", figure.label, figure.text(record).c_str());
}

/* Prints the sum of the whole history, then that of the newest intervals. */
template <typename TRecord>
void stat_print_totals(const TStatManagerBase<TRecord> &manager, const std::string &key, int newest,
                       const TStatPrint<TRecord> &figures)
{
    write_stderr("get_total 15min\n");
    stat_print(figures, manager.get_total(key, 0));
    write_stderr("get_total 10sec\n");
    stat_print(figures, manager.get_total(key, newest));
}

/* What a method of a query answers from: a record, or a series where `record` is null. */
template <typename TRecord> struct TStatSource {
    bool is_counted; // `type` is a count of intervals, 0 or more; else it is ignored
    TRecord (*record)(const TStatManagerBase<TRecord> &manager, const std::string &key, int count);
};
template <typename TRecord>
inline constexpr TStatSource<TRecord> kNewest = {
    false,
    [](const TStatManagerBase<TRecord> &manager, const std::string &key, int) { return manager.get_current(key); }};
template <typename TRecord>
inline constexpr TStatSource<TRecord> kTotal = {true,
                                                [](const TStatManagerBase<TRecord> &manager, const std::string &key,
                                                   int count) { return manager.get_total(key, count); }};
template <typename TRecord> inline constexpr TStatSource<TRecord> kSeries = {false, nullptr};

/* A method of a kind's query operation. */
template <typename TRecord, typename TShown = TRecord> struct TStatMethod {
    const char *name;
    TStatSource<TRecord> source;
    TStatViews<TRecord, TShown> views;
};

/* Has the method of that name answer into *out. kQueryOk, kQueryBadCount or
 * kQueryNoMethod; failures are logged and leave *out as it is. */
template <typename TRecord, typename TShown, size_t kMethods>
int stat_answer(const TStatMethod<TRecord, TShown> (&methods)[kMethods], const TStatManagerBase<TRecord> &manager,
                const char *method, const char *type, const std::string &key, json_object **out)
{
    for (const auto &[name, source, views] : methods) {
        if (!query_is(method, name))
            continue;
        int count = 0;
        const int result = source.is_counted ? query_count(type, &count) : kQueryOk;
        if (result != kQueryOk)
            return result;
        const TStatView<TRecord, TShown> &view = views.of(key);
        TJson answer = source.record != nullptr ? stat_object(view, source.record(manager, key, count))
                                                : stat_series(view, manager.get_minutes(key));
        *out = answer.release();
        return kQueryOk;
    }
    return query_unknown(method);
}

/* A kind's query operation: the checks of query_head, then the answer. */
template <typename TRecord, typename TShown, size_t kMethods>
int stat_proc(const TStatMethod<TRecord, TShown> (&methods)[kMethods], const TStatManagerBase<TRecord> *manager,
              const char *manager_name, const char *method, const char *type, const char *key, json_object **out)
{
    const int result = query_head(method, key, manager, manager_name);
    return result == kQueryOk ? stat_answer(methods, *manager, method, type, key, out) : result;
}

/* Ends a kind: its trace line, then those of its manager. Always 0. */
template <typename TManager> int stat_uninit(TManager **manager, const char *source, const char *function, int line)
{
    trace(source, function, line);
    delete *manager;
    *manager = nullptr;
    return 0;
}
