#pragma once

#include <ctime>
#include <string>
#include <string_view>

/* Once a day, at 00:45 local time, runs the appliance's configuration backup tool
 * for the surveillance and for the camera-management configuration, each in a
 * detached thread. A step of the sampling round, which it does not delay. Always 0. */
int sysstat_autobak_check();

/* --- The rules --------------------------------------------------------------- */

/* Whether the backups are to start at the local time `now`. *last_minute is the
 * minute of the hour at the call before, -1 at first: the trigger is evaluated
 * once per minute of the clock. */
bool autobak_due(int *last_minute, const struct tm &now);

/* The part of a folder's path behind its second "/", without trailing "/", as
 * users see it. Empty if there is none, or if it has 128 characters or more. */
std::string autobak_display_path(std::string_view folder);
