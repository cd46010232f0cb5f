#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "query_api/snapshot.h"
#include "velomondctl/output.h"

/* What the live view shows, and how it looks, as functions of text and size: nothing
 * here knows a terminal. */

/* A row with its points of the last 15 minutes, the newest first. */
struct TTrend {
    std::string name;
    std::vector<TFigure> points;
    std::string value; // of now, with its unit
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
    std::string fault; // why there is nothing newer; empty when the newest fetch went well
    std::string place; // of the monitor
    int64_t utc_s = 0; // of the newest fetch that went well; 0: none yet
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

/* Exactly view.lines lines, none of them wider than view.columns. */
std::vector<TTopLine> top_frame(const TTopData &data, const TTopView &view);

/* A character for each point, the oldest first; a blank where there is none. */
std::string sparkline(const std::vector<TFigure> &newest_first, double scale, size_t width, bool utf8);

/* What is wrong, the worst first. */
std::vector<TSpan> top_alarms(const TTopData &data);
