#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "query_api/query_api.h"
#include "velomondctl/output.h"

/* The commands and their arguments. A command writes its result to standard output and
 * returns its outcome; main() writes the line for a failure. */
struct TSettings {
    TAddress address;
    std::chrono::milliseconds timeout{3000}; // of all requests of one command, or of one pass
    bool no_colour = false;
    TFormat format = TFormat::kTable;

    bool colour() const { return !no_colour && stdout_takes_colour(); }
    /* Whether the monitor is on this machine. */
    bool is_here() const;
};

TOutcome command_status(const TSettings &settings);

/* cpu, mem, net and disk: all names, or one. */
enum class TTopic { kCpu, kMemory, kNetwork, kDisk };
struct TFiguresWanted {
    TTopic topic = TTopic::kCpu;
    std::string name;             // empty: all
    std::optional<unsigned> last; // intervals of an average
    bool series = false;          // a row per minute
};
TOutcome command_figures(const TSettings &settings, const TFiguresWanted &wanted);

TOutcome command_cameras(const TSettings &settings, std::optional<unsigned> minutes);
TOutcome command_disks(const TSettings &settings);

TOutcome command_dump(const TSettings &settings, bool wait);
TOutcome command_notify(const TSettings &settings, const std::string &type);

struct TWatchWanted {
    std::chrono::milliseconds interval{10000};
    unsigned passes = 0; // 0: until a signal
};
TOutcome command_watch(const TSettings &settings, const TWatchWanted &wanted);

struct TCheckWanted {
    std::vector<std::string> warn, crit; // NAME=RANGE
};
/* Returns the exit code of a monitoring plug-in: 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN. */
int command_check(const TSettings &settings, const TCheckWanted &wanted);

struct TTopWanted {
    bool plain = false;
    unsigned columns = 0, lines = 0; // of a plain frame; 0: size of the terminal, or 80x24
};
TOutcome command_top(const TSettings &settings, const TTopWanted &wanted);

struct TReportWanted {
    std::string folder; // of a dump; empty: the live monitor
    std::string file;   // empty: velomond-report.html
};
TOutcome command_report(const TSettings &settings, const TReportWanted &wanted);
