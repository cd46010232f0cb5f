#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "common/local_time.h"
#include "health/smart_schedule.h"
#include "health/smart_settings.h"
#include "platform/pal.h"

/* Health of the disks, each on its own and as one overall state. */

constexpr const char *kSmartSource = "sysstat_smart.cpp";

enum T_SMART_LEVEL : int32_t { SMART_NORMAL, SMART_HOUR_WARNING, SMART_WARNING, SMART_ERROR, SMART_LEVELS };
constexpr const char *kSmartLevelNames[SMART_LEVELS] = {"normal", "hour_warning", "warning", "error"};

struct T_SMART_DISK {
    int32_t state = SMART_NORMAL; // T_SMART_LEVEL
    int32_t hours = 0;            // powered on; 0: never read
    int32_t number = 0;           // as the platform counts disks
    char label[256] = {};         // without double quotes
    char name[128] = {};
};

/* The watcher's state. It lives as long as the process; only the watcher's thread uses
 * it, except for the first two, which queries read. */
struct T_SMART_STATE {
    std::atomic<int32_t> overall{SMART_NORMAL};                               // T_SMART_LEVEL
    std::atomic<uint32_t> report_time{static_cast<uint32_t>(wall_clock_s())}; // s, of the last report
    bool changed = false;                      // the overall state has, since the last report
    bool report_pending = true;                // report once, whatever the state
    std::map<std::string, T_SMART_DISK> disks; // every disk ever seen, by name
    T_SMART_SETTINGS settings;
    T_SMART_SCHEDULE schedule;
    std::string recording_disks; // what the recorder says of its disks, at most 1024 bytes
};

/* Checks the disks once: with SMART of all of them at the first check of an hour, else
 * only those in state hour_warning. Returns state->changed. */
bool do_update_check(T_SMART_STATE *state);

/* --- Computing, for the above and for tests -------------------------------- */

/* The number in a disk's name: its sixth character and what follows, read as
 * hexadecimal; 0 if there is none. */
int32_t smart_disk_number(const std::string &name);

/* The state of a disk that the platform's list calls `status`, with more hours
 * than the threshold or not. */
T_SMART_LEVEL smart_disk_level(int32_t status, bool too_old);

/* The label of a disk for events: without double quotes, at most 255 bytes. */
std::string smart_label(std::string_view text);
