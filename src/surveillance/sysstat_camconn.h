#pragma once

#include "base/json.h"
#include "surveillance/cam_conn_stat.h"

/* Connection failures per camera channel, read from the recording service once a
 * minute (thread CAMCONN-worker) and kept for 24 hours. */

/* Null while the module is not up. Set before any reader runs, cleared after the
 * last one has ended. */
extern TCamConnStatManager *g_p_CamConnstatManager;

int sysstat_camconn_init();   // always 0
int sysstat_camconn_uninit(); // ends the worker, then drops the history; always 0

/* Loads the channels' identities; on failure those before stay. 0; -1 the request
 * failed, -2 the answer is no JSON, -3 it has no array "data". Logged. */
int sysstat_caminfo_get();

/* Adds one reading to the history. If the service reports a changed configuration of a
 * channel, the identities are loaded again. A failed reading is logged and skipped. */
void sysstat_camconn_get();

/* Answers a query: "cur_data" (the newest minute), "total" (count: the newest
 * minutes, 0 all) or "channel_info"; *out gets a new value. -2 while the module is
 * not up, -3 for another method, -6 for a negative count. Any thread may call. */
int sysstat_camconn_proc(const char *method, const char *count, json_object **out);
