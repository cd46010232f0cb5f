#pragma once

#include "health/smart_check.h"

/* Reports and events of the SMART watcher. */

/* Reports the overall state to the dashboard receiver, without retry; a failure goes to
 * the SMART log. */
void do_update(TSmartState *state);

/* One event for each disk in state warning or error. */
void smart_send_disk_status(const TSmartState &state);

/* One event for each recording disk that has run for longer than the threshold. */
void smart_send_power_on_hours(const TSmartState &state);
