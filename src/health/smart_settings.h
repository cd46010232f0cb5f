#pragma once

#include "health/smart_check.h"

/* Reads the settings one by one, each directly into state->settings. A missing key leaves
 * its setting unchanged; a missing threshold ends the load. Any other failure ends it with
 * false and leaves the settings behind it unchanged. A load that succeeds allows the events
 * once more on the same day. The result goes to the SMART log. */
bool get_hdd_health_setting(TSmartState *state);

/* The effective threshold: the number in the first 127 bytes of
 * "/tmp/hdd_power_on_hour_threshold", or the configured one if that is 0 or missing, or
 * the file is not a regular one. */
int smart_threshold(int configured);
