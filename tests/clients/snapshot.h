#pragma once

#include "query_api/snapshot.h"

/* The figures of a kind in its order; those without a value are missing. */
inline TFigures figures(TKind kind, std::initializer_list<TFigure> values)
{
    TFigures made;
    auto value = values.begin();
    for (const TFigureSpec &spec : figures_of(kind))
        made.all.push_back({&spec, value != values.end() ? *value++ : TFigure()});
    return made;
}

/* A recorder with one camera connected and one not, a slow device, half its memory used
 * and some figures missing. */
inline TSnapshot recorder()
{
    using enum TKind;
    TSnapshot now;
    now.disks = now.fans = now.recording = {"normal", 1795393352};
    now.cameras.state[0] = TCamera::kConnected;
    now.cameras.state[4] = TCamera::kFailed;
    now.channels = {{0, "Gate", "", "", "", "", "", ""}, {4, "Yard", "", "", "", "", "", ""}};
    now.cpu = figures(kCpu, {15, 5, 0, 0, 80});
    now.cores = {{"cpu0", now.cpu}};
    now.memory = figures(kMemory, {1000, {}, 300, 500, 100, 100, 0, 200, 150});
    now.interfaces = {{"eth0", figures(kNetwork, {1000, {}})}};
    now.devices = {{"/dev/mapper/cachedev1", figures(kDisk, {10, 2, 31.5, 1, 1})}};
    now.services = {{"Vnvrd", figures(kCpuService, {1, 1, 0}), figures(kMemoryService, {90, 50, 0, 0})},
                    {"VdbService", figures(kCpuService, {0, 0, 0}), figures(kMemoryService, {0, 0, 0, 0})},
                    {"VeloMond", figures(kCpuService, {7, 5, 2}), figures(kMemoryService, {9, 4, 0, 0})}};
    return now;
}
