#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "query_api/query_api.h"

/* The complete current state of the monitor: some 60 requests on one connection, a
 * few milliseconds on the recorder itself. */
struct TSnapshot {
    struct TEntity {
        std::string name;
        TFigures now; // of the newest interval
    };
    struct TService {
        std::string name;
        TFigures cpu, memory;
        /* The memory of a process that is not running is 0. */
        bool runs() const { return memory.get("VmSize").value_or(0) > 0; }
    };

    std::vector<TEntity> cores; // without "system_all"
    TFigures cpu, memory;       // of the whole machine
    std::vector<TService> services;
    std::vector<TEntity> interfaces, devices;
    TStateAt disks, fans, recording;
    std::string hardware; // as the platform reports it; may be empty
    TCameraStat cameras;
    std::vector<TChannel> channels;

    /* False before the second sampling round: all values are then meaningless zeros. */
    bool has_figures() const { return cpu.get("idle_pcnt").has_value(); }

    /* Configured channels that failed to connect in the newest minute. */
    size_t cameras_failed() const;
    size_t cameras_there() const;
};

/* *out is unchanged if a request fails. The caller has called begin(). */
TOutcome snapshot_fetch(TQueryApi *api, TSnapshot *out);

/* Only the watchers' states: disks, fans, recording, cameras and channels. */
TOutcome snapshot_fetch_states(TQueryApi *api, TSnapshot *out);

/* Share of memory in use, in percent; missing before the first round. */
TFigure memory_used_percent(const TFigures &memory);

/* Busy time in percent: all but the idle time. */
TFigure cpu_busy_percent(const TFigures &cpu);

/* The name to show for a channel. */
std::string channel_name(const TSnapshot &snapshot, size_t id);
