#include <string>
#include <utility>

#include "query_api/snapshot.h"
#include "velomondctl/commands.h"
#include "velomondctl/status.h"

TOutcome command_cameras(const TSettings &settings, std::optional<unsigned> minutes)
{
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TSnapshot now;
    TOutcome outcome = api.cameras(minutes, &now.cameras);
    if (outcome.ok())
        outcome = api.channels(&now.channels);
    if (!outcome.ok())
        return outcome;
    TTable table{{{"id", "ID", ""},
                  {"name", "NAME", ""},
                  {"state", "STATE", ""},
                  {"changed", "CHANGED", ""},
                  {"ip", "ADDRESS", ""},
                  {"port", "PORT", ""},
                  {"brand", "BRAND", ""},
                  {"server", "SERVER", ""},
                  {"guid", "GUID", ""}},
                 {}};
    auto channel = now.channels.begin();
    for (size_t id = 0; id < kChannels; ++id) {
        const bool known = channel != now.channels.end() && channel->id == id;
        const TChannel one = known ? *channel++ : TChannel{};
        if (!known && now.cameras.state[id] == TCamera::kAbsent)
            continue;
        table.rows.push_back({static_cast<int64_t>(id), known ? one.name : "", camera_word(now.cameras.state[id]),
                              static_cast<bool>(now.cameras.changed[id]), one.ip, one.port, one.brand, one.ums_name,
                              one.guid});
    }
    if (settings.format == TFormat::kTable)
        table.columns.pop_back(); // too wide for a screen
    for (auto &row : table.rows)
        row.resize(table.columns.size());
    return put_out(table_text(table, settings.format));
}

TOutcome command_disks(const TSettings &settings)
{
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TStatus status;
    TStateAt state;
    TTable devices{{{"name", "DEVICE", ""}}, {}};
    for (const TFigureSpec &spec : figures_of(TKind::kDisk))
        devices.columns.push_back({std::string(spec.key), std::string(spec.head), unit_text(spec.average)});
    TOutcome outcome = api.disks(&state);
    if (outcome.ok())
        outcome = api.status(&status);
    for (size_t i = 0; outcome.ok() && i < status.devices.size(); ++i) {
        constexpr unsigned kMinute = 6;
        TFigures figures;
        outcome = api.figures(TKind::kDisk, status.devices[i], kMinute, &figures);
        devices.rows.push_back({status.devices[i]});
        for (const TNamedFigure &one : figures.all)
            devices.rows.back().push_back(cell(one.value));
    }
    if (!outcome.ok())
        return outcome;
    const TTable volumes = volumes_table(settings.is_here() ? volumes_here() : std::vector<TVolume>());
    if (settings.format == TFormat::kJson) {
        TJsonObject root;
        root.add("state", state.state);
        root.add("utc_time", state.utc_s);
        root.add("devices", devices);
        root.add("volumes", volumes);
        return put_out(root.text());
    }
    if (settings.format == TFormat::kCsv)
        return put_out(table_text(devices, TFormat::kCsv));
    std::string text = text_line("disks", toned(state.state, tone_of_state(state.state), settings.colour()) +
                                              "  since " + time_text(state.utc_s));
    for (const TTable *table : {static_cast<const TTable *>(&devices), &volumes}) {
        if (!table->rows.empty())
            text += "\n" + table_text(*table, TFormat::kTable);
    }
    return put_out(text);
}
