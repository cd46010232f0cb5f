#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "query_api/snapshot.h"
#include "velomondctl/dump_files.h"
#include "velomondctl/output.h"
#include "velomondctl/recorder.h"
#include "velomondctl/top_frame.h"

/* A report: its contents, the charts and the page, as functions of text. */

struct TCurve {
    std::string name;
    std::vector<std::pair<int64_t, TFigure>> points; // UTC in seconds, the oldest first
};
struct TPicture {
    std::string title, unit;
    std::vector<TCurve> curves; // kMaxCurves at most
};
constexpr size_t kMaxCurves = 8;

struct TReport {
    std::string title;
    std::vector<std::pair<std::string, std::string>> facts;
    std::vector<TSpan> alarms;
    std::vector<TPicture> pictures; // each with at least one point
    std::vector<std::pair<std::string, TTable>> tables;
};

/* The report of a dump, with warnings about gaps and high values. */
TReport report_of_dump(const std::string &folder, const TDump &dump);

/* The gnuplot script that writes a chart as SVG to standard output. It contains no
 * foreign names: the legend is part of the page. */
std::string picture_script(const TPicture &picture);

/* "#1f77b4" of the n-th curve, in chart and legend. */
std::string_view curve_colour(size_t number);

/* The page; `svgs` are the charts in their order. It loads nothing and has no
 * scripts. */
std::string report_page(const TReport &report, const std::vector<std::string> &svgs);

std::string html_text(std::string_view text);
std::string base64_text(std::string_view bytes);
