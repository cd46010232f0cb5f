#pragma once

#include <cstdint>

/* Once an hour DB-worker checks how much of the system volume the surveillance database
 * takes, and records an event if that is too much. Both return 0. */
int sysdb_thread_start();
int sysdb_thread_stop();

/* --- The rule ---------------------------------------------------------------- */

/* Whether a database of `db_mb` MB needs an event: above 5 % of the volume,
 * while the volume's second figure is below 64 GB. Sizes in bytes; size_bytes is
 * not 0. */
bool db_too_large(uint64_t db_mb, int64_t size_bytes, int64_t second_bytes);
