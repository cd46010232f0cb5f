#pragma once

#include <functional>
#include <string>

/* When disk events are due and what counts as a long life: section "hdd_health"
 * of the recorder's configuration. */
struct T_SMART_SETTINGS {
    int threshold_hours = 20000; // power-on hours above it are worth a warning
    std::string sch_type = "daily";
    int sch_weekday = 0; // 0 Sunday
    int sch_hour = 0;    // 0 to 23, local time
};

/* Reads one key of the section as __nvrcfg_get_key_value does. */
using T_SMART_KEY_READER = std::function<int(const char *key, std::string &out, int *err_no)>;

/* Reads the settings one by one; each that was read is in *settings at once. A
 * key that is absent keeps what was there, and with an absent threshold nothing
 * further is looked at. Any other failure ends the load: then false, and the
 * keys not reached keep what they had. The outcome is told in the SMART log. */
bool get_hdd_health_setting(const T_SMART_KEY_READER &read, T_SMART_SETTINGS *settings);

/* The reader of the recorder's configuration. */
int smart_read_key(const char *key, std::string &out, int *err_no);

/* The threshold in force: what "/tmp/hdd_power_on_hour_threshold" says in its
 * first 127 bytes, or the configured one where that says nothing or 0, or is no
 * regular file. */
int smart_threshold(int configured);
