#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "query_api/snapshot.h"
#include "velomondctl/output.h"

/* Contents and layout of the live view, as functions of data and size, independent of
 * the terminal. */

/* A row with its points of the last 15 minutes, the newest first. */
struct TTrend {
    std::string name;
    std::vector<TFigure> points;
    std::string value; // the newest one, with its unit
    double scale = 0;  // a full bar; 0: the largest point
};
struct TTopService {
    std::string name;
    TFigure cpu_percent, resident_kb;
    std::vector<TFigure> cpu, resident;
};
struct TTopData {
    TSnapshot now;
    std::vector<TTrend> machine; // cores and memory
    std::vector<TTrend> traffic; // interfaces and devices
    std::vector<TTopService> services;
    std::string fault; // why the newest fetch failed; empty if it succeeded
    std::string place; // address of the monitor
    int64_t utc_s = 0; // of the newest successful fetch; 0: no fetch has succeeded
};

/* Fetches everything. On failure only `fault` of *out is written. */
TOutcome top_fetch(TQueryApi *api, int64_t utc_s, TTopData *out);

enum class TTopSort { kCpu, kMemory, kName };
struct TTopView {
    TTopSort sort = TTopSort::kCpu;
    bool help = false;
    bool utf8 = true; // whether the terminal can show bars and dots
    size_t columns = 80, lines = 24;
};

struct TSpan {
    std::string text;
    TTone tone = TTone::kPlain;
};
using TTopLine = std::vector<TSpan>;

/* Exactly view.lines lines, each at most view.columns wide. */
std::vector<TTopLine> top_frame(const TTopData &data, const TTopView &view);

/* A character per point, the oldest first; a blank for a missing point. */
std::string sparkline(const std::vector<TFigure> &newest_first, double scale, size_t width, bool utf8);

/* Alarms, the worst first. */
std::vector<TSpan> top_alarms(const TTopData &data);
