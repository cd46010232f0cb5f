#pragma once

#include "base/json.h"
#include "health/smart_check.h"

/* Disk health: checked once a minute, in full once an hour; changes are reported to the
 * dashboard receiver, and at the configured hour events for the disks that need
 * attention are sent to the surveillance event log. */

int smart_thread_start(); // always 0, also if the thread cannot be created
int smart_thread_stop();  // always 0; harmless without start

/* Answers a query: "disk_update" (time of the last report, overall state); *out
 * gets a new object. -4 without a method, -3 for another one. Any thread may call. */
int sysstat_smart_proc(const char *method, json_object **out);

/* --- The parts of the thread's loop, for tests ----------------------------- */

/* One event for each disk in state warning or error. */
void smart_send_disk_status(const TSmartState &state);

/* One event for each recording disk that has run for longer than the threshold. */
void smart_send_power_on_hours(const TSmartState &state);

/* Checks, reports and announces what is due. */
void smart_tick(TSmartState *state);
