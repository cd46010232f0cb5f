#pragma once

#include <string>

/* When disk events are due and when a disk counts as old: section "hdd_health" of
 * the recorder's configuration. */
struct TSmartSettings {
    int threshold_hours = 20000; // more power-on hours give a warning
    std::string sch_type = "daily";
    int sch_weekday = 0; // 0 Sunday
    int sch_hour = 0;    // 0 to 23, local time
};

/* Reads the settings one by one, each directly into *settings. A missing key leaves its
 * setting unchanged; a missing threshold ends the load. Any other failure ends it with
 * false and leaves the settings behind it unchanged. The result goes to the SMART log. */
bool get_hdd_health_setting(TSmartSettings *settings);

/* The effective threshold: the number in the first 127 bytes of
 * "/tmp/hdd_power_on_hour_threshold", or the configured one if that is 0 or missing, or
 * the file is not a regular one. */
int smart_threshold(int configured);
