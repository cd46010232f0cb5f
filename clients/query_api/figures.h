#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/* A value of the monitor; missing before the first reading, and after a counter went
 * backwards: the monitor then answers a difference near 2^64, or a rate computed from
 * it. */
using TFigure = std::optional<double>;

enum class TKind { kCpu, kCpuService, kMemory, kMemoryService, kNetwork, kDisk };

enum class TUnit {
    kPercent,
    kKilobytes,
    kBytes,
    kBytesPerSecond,
    kKilobytesPerSecond,
    kMilliseconds,
    kCount,
    kPerSecond
};

/* One member of an answer's "data". */
struct TFigureSpec {
    std::string_view key;  // as the answer has it
    std::string_view head; // of a column
    TUnit now;             // of the newest interval
    TUnit average;         // of an average or a point of a minute
    bool now_only = false; // not part of averages
};

/* Members of the answers for an entity of that kind, in their order. */
std::span<const TFigureSpec> figures_of(TKind kind);

std::string_view unit_text(TUnit unit);

struct TNamedFigure {
    const TFigureSpec *spec = nullptr;
    TFigure value;
};

/* The figures of one entity, in the order of figures_of(). */
struct TFigures {
    std::vector<TNamedFigure> all;
    /* By key; also missing if there is no such member. */
    TFigure get(std::string_view key) const;
};

/* One row of points for each figure that averages have, a point a minute, the
 * newest first, at most 15; all rows have the same length. */
struct TSeries {
    struct TRow {
        const TFigureSpec *spec = nullptr;
        std::vector<TFigure> points;
    };
    std::vector<TRow> rows;
    const std::vector<TFigure> *get(std::string_view key) const;
};

/* Parses "12.3" and the like; *out is nullopt for nan, infinities and differences of
 * a counter that went backwards. False if the text is not a number. */
bool figure_parse(std::string_view text, TFigure *out);
