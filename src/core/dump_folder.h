#pragma once

#include <string>

/* Chooses and makes the folder that the next statistics dump goes into, and
 * returns its plain path: the first of "/Vtmp/.sys_stats/log_0" to "log_2" that
 * does not exist. When all three do they are moved to "log_bak_0" to
 * "log_bak_2", which works once: later the backups are in the way, nothing is
 * moved, and log_0 is written again. That is what the collecting tools expect:
 * nothing is ever deleted here. The caller holds the global statistics lock. */
std::string dump_folder_open();
