#pragma once

#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "query_api/snapshot.h"
#include "velomondctl/recorder.h"

/* A range as monitoring plug-ins write it: "10" is 0 to 10, "10:" from 10 on, "~:10"
 * up to 10, "10:20", "@10:20" the inside. A value outside (with '@' inside) alerts. */
struct TAlertRange {
    double start = 0;
    double end = std::numeric_limits<double>::infinity();
    bool inside = false;
    std::string text;

    bool alerts(double value) const { return (value >= start && value <= end) == inside; }
};
bool alert_range_parse(std::string_view text, TAlertRange *out);

/* What can be checked, by name: disks and fans and recording (0 normal; disks: 1
 * hour_warning, 2 warning, 3 error; else 1 error), cameras (failed ones), cpu, memory,
 * swap and volumes (percent in use, of the fullest), latency (ms, of the slowest
 * device). Missing figures are not in it. */
std::map<std::string, TFigure> check_values(const TSnapshot &now, const std::vector<TVolume> &volumes);

enum class TLevel { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };
using TRanges = std::map<std::string, TAlertRange>;

/* Adds "NAME=RANGE" to the ranges. False for an unknown name or an invalid range. */
bool check_range_add(const std::string &text, TRanges *ranges);

/* One line "VELOMOND STATE - text | performance data". A missing value that has a range is
 * UNKNOWN, unless another one is CRITICAL. */
struct TCheckResult {
    TLevel level = TLevel::kOk;
    std::string line;
};
TCheckResult check_decide(const TSnapshot &now, const std::map<std::string, TFigure> &values, const TRanges &warn,
                          const TRanges &crit);
