#include <algorithm>
#include <string>
#include <utility>

#include "query_api/clean_text.h"
#include "velomondctl/commands.h"

namespace {

struct TGroup {
    TKind kind;
    std::vector<std::string> names;
};

/* The entities of a topic, in groups of one kind each. */
std::vector<TGroup> groups_of(TTopic topic, const TStatus &status)
{
    switch (topic) {
    case TTopic::kCpu:
        return {{TKind::kCpu, status.cores}, {TKind::kCpuService, status.services}};
    case TTopic::kMemory:
        return {{TKind::kMemory, {"system_all"}}, {TKind::kMemoryService, status.services}};
    case TTopic::kNetwork:
        return {{TKind::kNetwork, status.interfaces}};
    case TTopic::kDisk:
        break;
    }
    return {{TKind::kDisk, status.devices}};
}

/* Keeps only the one name; the last part of the path of a device is enough. */
TOutcome keep_name(const std::string &name, std::vector<TGroup> *groups)
{
    std::string known;
    for (TGroup &group : *groups) {
        for (const std::string &one : group.names) {
            known += (known.empty() ? "" : ", ") + one;
            if (one == name || (group.kind == TKind::kDisk && one.substr(one.rfind('/') + 1) == name)) {
                TGroup kept{group.kind, {one}};
                *groups = {std::move(kept)};
                return {};
            }
        }
    }
    return failure(TFault::kNotFound,
                   "not monitored: " + clean_text(name) + (known.empty() ? "" : " (monitored: " + known + ")"));
}

TTable table_for(TKind kind, bool average, const char *first, const char *head)
{
    TTable table{{{first, head, ""}}, {}};
    for (const TFigureSpec &spec : figures_of(kind)) {
        if (!average || !spec.now_only)
            table.columns.push_back(
                {std::string(spec.key), std::string(spec.head), unit_text(average ? spec.average : spec.now)});
    }
    return table;
}

TOutcome fetch_rows(TQueryApi *api, const TGroup &group, const TFiguresWanted &wanted, TTable *table)
{
    *table = table_for(group.kind, wanted.last.has_value(), "name", "NAME");
    for (const std::string &name : group.names) {
        TFigures figures;
        TOutcome outcome = api->figures(group.kind, name, wanted.last, &figures);
        if (!outcome.ok())
            return outcome;
        table->rows.push_back({name});
        for (const TNamedFigure &one : figures.all)
            table->rows.back().push_back(cell(one.value));
    }
    return {};
}

/* A row per minute, the newest first: "0" is the newest minute. */
TOutcome fetch_minutes(TQueryApi *api, const TGroup &group, TTable *table)
{
    *table = table_for(group.kind, true, "minutes_ago", "MINUTES-AGO");
    TSeries series;
    TOutcome outcome = api->series(group.kind, group.names.front(), &series);
    for (size_t i = 0; outcome.ok() && !series.rows.empty() && i < series.rows[0].points.size(); ++i) {
        table->rows.push_back({static_cast<int64_t>(i)});
        for (const TSeries::TRow &row : series.rows)
            table->rows.back().push_back(cell(row.points[i]));
    }
    return outcome;
}

/* JSON and CSV are one table each: the columns of all groups, missing where a group
 * has no such figure. */
TTable merged(std::vector<TTable> tables)
{
    TTable all = std::move(tables[0]);
    for (size_t i = 1; i < tables.size(); ++i) {
        std::vector<size_t> places;
        for (const TColumn &column : tables[i].columns) {
            const auto found = std::find_if(all.columns.begin(), all.columns.end(),
                                            [&column](const TColumn &one) { return one.key == column.key; });
            places.push_back(static_cast<size_t>(found - all.columns.begin()));
            if (found == all.columns.end())
                all.columns.push_back(column);
        }
        for (auto &row : tables[i].rows) {
            all.rows.emplace_back(all.columns.size());
            for (size_t at = 0; at < row.size(); ++at)
                all.rows.back()[places[at]] = std::move(row[at]);
        }
    }
    for (auto &row : all.rows)
        row.resize(all.columns.size());
    return all;
}

} // namespace

TOutcome command_figures(const TSettings &settings, const TFiguresWanted &wanted)
{
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TStatus status;
    TOutcome outcome = api.status(&status);
    if (!outcome.ok())
        return outcome;
    std::vector<TGroup> groups = groups_of(wanted.topic, status);
    const std::string name = wanted.name.empty() && wanted.series && wanted.topic <= TTopic::kMemory ? "system_all"
                             : wanted.name.empty() && wanted.series && !groups[0].names.empty() ? groups[0].names[0]
                                                                                                : wanted.name;
    if (!name.empty() || wanted.series)
        outcome = keep_name(name, &groups);
    std::vector<TTable> tables;
    for (size_t i = 0; outcome.ok() && i < groups.size(); ++i) {
        tables.emplace_back();
        outcome = wanted.series ? fetch_minutes(&api, groups[i], &tables.back())
                                : fetch_rows(&api, groups[i], wanted, &tables.back());
    }
    if (!outcome.ok())
        return outcome;
    if (settings.format != TFormat::kTable)
        return put_out(table_text(merged(std::move(tables)), settings.format));
    std::string text;
    for (const TTable &one : tables)
        text += (text.empty() ? "" : "\n") + table_text(one, TFormat::kTable);
    return put_out(text);
}
