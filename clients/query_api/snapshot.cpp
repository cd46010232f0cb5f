#include "query_api/snapshot.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char *kAll = "system_all";

TOutcome fetch_entities(TQueryApi *api, TKind kind, const std::vector<std::string> &names,
                        std::vector<TSnapshot::TEntity> *out)
{
    for (const std::string &name : names) {
        if (name == kAll)
            continue;
        TSnapshot::TEntity one{name, {}};
        TOutcome outcome = api->figures(kind, name, {}, &one.now);
        if (!outcome.ok())
            return outcome;
        out->push_back(std::move(one));
    }
    return {};
}

TOutcome fetch_services(TQueryApi *api, const std::vector<std::string> &names, std::vector<TSnapshot::TService> *out)
{
    for (const std::string &name : names) {
        TSnapshot::TService one{name, {}, {}};
        TOutcome outcome = api->figures(TKind::kCpuService, name, {}, &one.cpu);
        if (outcome.ok())
            outcome = api->figures(TKind::kMemoryService, name, {}, &one.memory);
        if (!outcome.ok())
            return outcome;
        out->push_back(std::move(one));
    }
    return {};
}

} // namespace

size_t TSnapshot::cameras_failed() const
{
    return static_cast<size_t>(std::count(cameras.state.begin(), cameras.state.end(), TCamera::kFailed));
}

size_t TSnapshot::cameras_there() const
{
    return kChannels - static_cast<size_t>(std::count(cameras.state.begin(), cameras.state.end(), TCamera::kAbsent));
}

TOutcome snapshot_fetch_states(TQueryApi *api, TSnapshot *out)
{
    TSnapshot taken;
    TOutcome outcome = api->disks(&taken.disks);
    if (outcome.ok())
        outcome = api->fans(&taken.fans);
    if (outcome.ok())
        outcome = api->recording(&taken.recording);
    if (outcome.ok())
        outcome = api->hardware(&taken.hardware);
    if (outcome.ok())
        outcome = api->cameras({}, &taken.cameras);
    if (outcome.ok())
        outcome = api->channels(&taken.channels);
    if (outcome.ok())
        *out = std::move(taken);
    return outcome;
}

TOutcome snapshot_fetch(TQueryApi *api, TSnapshot *out)
{
    TSnapshot taken;
    TStatus names;
    TOutcome outcome = snapshot_fetch_states(api, &taken);
    if (outcome.ok())
        outcome = api->status(&names);
    if (outcome.ok())
        outcome = api->figures(TKind::kCpu, kAll, {}, &taken.cpu);
    if (outcome.ok())
        outcome = api->figures(TKind::kMemory, kAll, {}, &taken.memory);
    if (outcome.ok())
        outcome = fetch_entities(api, TKind::kCpu, names.cores, &taken.cores);
    if (outcome.ok())
        outcome = fetch_entities(api, TKind::kNetwork, names.interfaces, &taken.interfaces);
    if (outcome.ok())
        outcome = fetch_entities(api, TKind::kDisk, names.devices, &taken.devices);
    if (outcome.ok())
        outcome = fetch_services(api, names.services, &taken.services);
    if (outcome.ok())
        *out = std::move(taken);
    return outcome;
}

TFigure memory_used_percent(const TFigures &memory)
{
    const TFigure total = memory.get("MemTotal");
    const TFigure available = memory.get("MemAvailable");
    if (!total || !available || *total <= 0)
        return {};
    return 100.0 * std::max(0.0, *total - *available) / *total;
}

TFigure cpu_busy_percent(const TFigures &cpu)
{
    const TFigure idle = cpu.get("idle_pcnt");
    return idle ? TFigure(100.0 - *idle) : TFigure();
}

std::string channel_name(const TSnapshot &snapshot, size_t id)
{
    for (const TChannel &one : snapshot.channels) {
        if (one.id == id && !one.name.empty())
            return one.name;
    }
    return "channel " + std::to_string(id);
}
