#include "velomondctl/status.h"

#include <algorithm>
#include <utility>

#include "velomondctl/commands.h"

namespace {

constexpr size_t kTopServices = 5;

TTable cameras_table(const TSnapshot &now)
{
    TTable table{{{"id", "ID", ""}, {"name", "NAME", ""}}, {}};
    for (size_t id = 0; id < now.cameras.state.size(); ++id) {
        if (now.cameras.state[id] == TCamera::kFailed)
            table.rows.push_back({static_cast<int64_t>(id), channel_name(now, id)});
    }
    return table;
}

std::string state_line(const char *label, const TStateAt &state, bool colour)
{
    return text_line(label, toned(state.state, tone_of_state(state.state), colour) +
                                toned("  since " + time_text(state.utc_s), TTone::kDim, colour));
}

std::string percent(const TFigure &figure)
{
    return figure ? number_text(*figure) + " %" : "-";
}

TFigure times(const TFigure &figure, double factor)
{
    return figure ? TFigure(*figure * factor) : TFigure();
}

} // namespace

std::string text_line(std::string_view label, std::string_view value)
{
    std::string line(label);
    line.resize(std::max<size_t>(line.size() + 1, 12), ' ');
    return line.append(value) + "\n";
}

TTable services_table(const TSnapshot &now)
{
    TTable table{{{"name", "SERVICE", ""}, {"cpu_percent", "CPU", "%"}, {"resident_kb", "RESIDENT", "kB"}}, {}};
    std::vector<const TSnapshot::TService *> running;
    for (const TSnapshot::TService &one : now.services) {
        if (one.runs())
            running.push_back(&one);
    }
    std::stable_sort(running.begin(), running.end(), [](const auto *a, const auto *b) {
        const auto key = [](const auto *one) {
            return std::pair(one->cpu.get("total_pcnt").value_or(0), one->memory.get("VmRSS").value_or(0));
        };
        return key(a) > key(b);
    });
    for (const auto *one : running)
        table.rows.push_back({one->name, cell(one->cpu.get("total_pcnt")), cell(one->memory.get("VmRSS"))});
    return table;
}

TTable volumes_table(const std::vector<TVolume> &volumes)
{
    TTable table{{{"id", "VOLUME", ""},
                  {"name", "NAME", ""},
                  {"mount_point", "MOUNTED-ON", ""},
                  {"size_bytes", "SIZE", "B"},
                  {"free_bytes", "FREE", "B"},
                  {"used_percent", "USED", "%"}},
                 {}};
    for (const TVolume &one : volumes) {
        const auto figure = [&one](double value) { return one.mounted ? TCell(value) : TCell(); };
        table.rows.push_back({static_cast<int64_t>(one.id), one.name, one.mount_point,
                              figure(static_cast<double>(one.size_bytes)), figure(static_cast<double>(one.free_bytes)),
                              figure(one.used_percent())});
    }
    return table;
}

std::string status_text(const TSnapshot &now, const std::vector<TVolume> &volumes, bool colour)
{
    std::string text = state_line("disks", now.disks, colour) + state_line("fans", now.fans, colour);
    if (!now.hardware.empty())
        text += text_line("hardware", now.hardware);
    text += state_line("recording", now.recording, colour);

    const size_t failed = now.cameras_failed();
    std::string cameras = std::to_string(now.cameras_there() - failed) + " connected, " +
                          toned(std::to_string(failed) + " failed", failed > 0 ? TTone::kBad : TTone::kGood, colour);
    constexpr size_t kNamed = 3;
    const TTable down = cameras_table(now);
    for (size_t i = 0; i < std::min(kNamed, down.rows.size()); ++i)
        cameras += (i == 0 ? ": " : ", ") + std::get<std::string>(down.rows[i][1]);
    text += text_line("cameras", cameras + (down.rows.size() > kNamed ? ", ..." : ""));

    text += text_line("cpu", percent(cpu_busy_percent(now.cpu)) + " of " + std::to_string(now.cores.size()) +
                                 " cores; user " + percent(now.cpu.get("user_pcnt")) + ", system " +
                                 percent(now.cpu.get("sys_pcnt")) + ", iowait " + percent(now.cpu.get("iowait_pcnt")));
    text += text_line("memory", percent(memory_used_percent(now.memory)) + " of " +
                                    size_text(times(now.memory.get("MemTotal"), 1024)) + "; swap " +
                                    size_text(times(now.memory.get("SwapTotal"), 1024)) + ", free " +
                                    size_text(times(now.memory.get("SwapFree"), 1024)));
    for (const auto &one : now.interfaces)
        text += text_line(&one == now.interfaces.data() ? "network" : "",
                          one.name + ": sent " + size_text(times(one.now.get("tx"), 0.1)) + "/s, received " +
                              size_text(times(one.now.get("rx"), 0.1)) + "/s");
    for (const auto &one : now.devices)
        text += text_line(&one == now.devices.data() ? "cache" : "",
                          one.name + ": " + size_text(times(one.now.get("throughput"), 102.4)) + "/s, read " +
                              number_text(cell(one.now.get("rd_latency"))) + " ms, write " +
                              number_text(cell(one.now.get("wr_latency"))) + " ms");
    for (const TVolume &one : volumes) {
        const TTone tone = !one.mounted || one.used_percent() >= 95 ? TTone::kBad : TTone::kPlain;
        text += text_line(&one == volumes.data() ? "volumes" : "",
                          one.name + ": " +
                              toned(one.mounted ? percent(one.used_percent()) + " of " +
                                                      size_text(static_cast<double>(one.size_bytes))
                                                : "not mounted",
                                    tone, colour));
    }
    TTable services = services_table(now);
    const size_t running = services.rows.size();
    services.rows.resize(std::min(kTopServices, running));
    text += text_line("services", std::to_string(running) + " of " + std::to_string(now.services.size()) + " running");
    return running > 0 ? text + "\n" + table_text(services, TFormat::kTable) : text;
}

std::string status_json(const TSnapshot &now, const std::vector<TVolume> &volumes)
{
    TJsonObject root;
    const auto state = [&root](const char *key, const TStateAt &value) {
        TJsonObject object;
        object.add("state", value.state);
        object.add("utc_time", value.utc_s == 0 ? TCell() : TCell(value.utc_s));
        root.add(key, std::move(object));
    };
    state("disks", now.disks);
    state("fans", now.fans);
    state("recording", now.recording);
    root.add("hardware", now.hardware);
    TJsonObject cameras;
    cameras.add("connected", static_cast<int64_t>(now.cameras_there() - now.cameras_failed()));
    cameras.add("failed", static_cast<int64_t>(now.cameras_failed()));
    cameras.add("failed_channels", cameras_table(now));
    root.add("cameras", std::move(cameras));
    const auto figures = [&root](const char *key, const TFigures &values, const char *share, const TFigure &value) {
        TJsonObject object;
        object.add(share, cell(value));
        for (const TNamedFigure &one : values.all)
            object.add(std::string(one.spec->key), cell(one.value));
        root.add(key, std::move(object));
    };
    figures("cpu", now.cpu, "busy_pcnt", cpu_busy_percent(now.cpu));
    figures("memory", now.memory, "used_pcnt", memory_used_percent(now.memory));
    const auto entities = [&root](const char *key, TKind kind, const std::vector<TSnapshot::TEntity> &all) {
        TTable table{{{"name", "", ""}}, {}};
        for (const TFigureSpec &spec : figures_of(kind))
            table.columns.push_back({std::string(spec.key), "", ""});
        for (const auto &one : all) {
            table.rows.push_back({one.name});
            for (const TNamedFigure &figure : one.now.all)
                table.rows.back().push_back(cell(figure.value));
        }
        root.add(key, table);
    };
    entities("interfaces", TKind::kNetwork, now.interfaces);
    entities("devices", TKind::kDisk, now.devices);
    root.add("volumes", volumes_table(volumes));
    root.add("services", services_table(now));
    return root.text();
}

TOutcome command_status(const TSettings &settings)
{
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    TSnapshot now;
    TOutcome outcome = snapshot_fetch(&api, &now);
    if (!outcome.ok())
        return outcome;
    const std::vector<TVolume> volumes = settings.is_here() ? volumes_here() : std::vector<TVolume>();
    return put_out(settings.format == TFormat::kJson ? status_json(now, volumes)
                                                     : status_text(now, volumes, settings.colour()));
}
