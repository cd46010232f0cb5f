#pragma once

#include <string>
#include <vector>

#include "base/fd.h"

/* A process that bears a name of the process table. */
struct T_TABLE_PROCESS {
    std::string pid; // its folder in /proc
    size_t row;      // its name's place in the table
};

/* One reading of the names of all processes, in the order of the kernel's
 * listing. Several may bear the same name: which one counts is the sampler's
 * rule. Any of them may be gone by the time its files are opened. */
struct T_PROCESS_SCAN {
    TFd proc; // "/proc", for opening "<pid>/stat" and the like
    std::vector<T_TABLE_PROCESS> processes;
};

/* Reads all names anew. Null, and a line on standard error, when /proc cannot be
 * opened. The result is good until the next call of either function; both belong
 * to the sampling round and are called under the global statistics lock. */
const T_PROCESS_SCAN *process_scan_new();

/* The names that the round has read before, so that a round opens every process's
 * name once; read anew where that was not done since the last such call. */
const T_PROCESS_SCAN *process_scan_of_round();

/* Makes the next process_scan_of_round read anew: for a step that took seconds, in
 * which services may have ended and started again under another process id. */
void process_scan_expire();
