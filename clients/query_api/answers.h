#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "query_api/figures.h"
#include "query_api/outcome.h"

/* Parsers of the monitor's answers. *out is written on success only; kInvalid reports
 * what is wrong, kRefused a result code other than 0. All strings returned are clean
 * (clean_text.h). */

constexpr size_t kChannels = 192;
constexpr size_t kMaxNames = 1024; // of one list; a machine has a few dozen

/* What the monitor follows. */
struct TStatus {
    std::vector<std::string> cores;      // cpu0, ..., and "system_all"
    std::vector<std::string> devices;    // paths below /dev/mapper
    std::vector<std::string> interfaces; // without the loopback
    std::vector<std::string> services;   // names of processes
};
TOutcome answer_status(std::string_view text, TStatus *out);

TOutcome answer_figures(std::string_view text, TKind kind, bool average, TFigures *out);
TOutcome answer_series(std::string_view text, TKind kind, TSeries *out);

/* State of a watcher and when it was last reported (seconds since the epoch; 0:
 * never). */
struct TStateAt {
    std::string state;
    int64_t utc_s = 0;
    bool operator==(const TStateAt &) const = default;
};
TOutcome answer_disks(std::string_view text, TStateAt *out); // normal, hour_warning, warning, error
TOutcome answer_fans(std::string_view text, TStateAt *out);  // normal, error
TOutcome answer_recording(std::string_view text, TStateAt *out);
TOutcome answer_hardware(std::string_view text, std::string *out);

/* Camera connections of one minute, or of several together. */
enum class TCamera : char { kConnected = '0', kFailed = '1', kAbsent = '2' };
/* "connected", "failed" or "absent". */
std::string camera_word(TCamera state);
struct TCameraStat {
    std::vector<TCamera> state = std::vector<TCamera>(kChannels, TCamera::kAbsent);
    std::bitset<kChannels> changed;
    int64_t interval_ms = 0;
    int64_t time_ms = 0; // wall clock; 0 before the second reading
};
TOutcome answer_cameras(std::string_view text, TCameraStat *out);

struct TChannel {
    size_t id = 0;
    std::string name, guid, ums_id, ip, port, brand, ums_name;
};
TOutcome answer_channels(std::string_view text, std::vector<TChannel> *out); // sorted by id

/* Of the dump, and of a notice ("retCode"): only the code. */
TOutcome answer_done(std::string_view text, const char *key);
