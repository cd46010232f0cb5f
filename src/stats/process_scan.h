#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/fd.h"
#include "stats/process_table.h"

/* A process whose name is in the process table. */
struct TTableProcess {
    std::string pid; // its folder in /proc
    size_t row;      // its name's place in the table
};

/* One reading of the names of all processes, in the order of the kernel's listing.
 * Several may have the same name: which one counts is the sampler's rule. Any of them
 * may be gone by the time its files are opened. */
struct TProcessScan {
    TFd proc; // "/proc", for opening "<pid>/stat" and the like
    std::vector<TTableProcess> processes;
};

/* Reads all names. Nothing, and a line on standard error, when /proc cannot be opened. */
std::optional<TProcessScan> process_scan();

/* The processes of one sampling round, whose steps share one scan, so that a round
 * opens every process's name once. */
class TRoundProcesses {
public:
    /* Scans where that was not done yet. Null as above; the next call tries again. */
    const TProcessScan *scan();

    /* Makes the next call scan again: after a step that took seconds, in which services
     * may have ended and started again under another process id. */
    void expire() { m_scan.reset(); }

private:
    std::optional<TProcessScan> m_scan;
};

/* One record per row of the table. `read` fills the record of a process in, and returns
 * whether the process was still there; where the field is 0 afterwards, the next process
 * of that name has its turn. Zeros for a row whose name no process has. */
template <typename TItem, typename TRead>
TTableRecords<TItem> process_records(const TProcessScan &scan, uint64_t TItem::*field, TRead read)
{
    TTableRecords<TItem> records;
    for (size_t row = 0; row < records.size(); ++row) {
        records[row].type = 1;
        records[row].name = kProcessTable[row];
    }
    size_t found = 0;
    for (const auto &[pid, row] : scan.processes) {
        if (records[row].*field == 0 && read(pid, &records[row]) && ++found == records.size())
            break;
    }
    return records;
}
