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

/* Health of the disks, each by itself and as one overall state. */

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

/* What the watcher knows. It lives as long as the process; the watcher's thread
 * alone uses it, but for the first two, which queries read. */
struct T_SMART_STATE {
    std::atomic<int32_t> overall{SMART_NORMAL};                               // T_SMART_LEVEL
    std::atomic<uint32_t> report_time{static_cast<uint32_t>(wall_clock_s())}; // s, of the last report
    bool changed = false;                      // the overall state has, since the last report
    bool report_pending = true;                // report once, whatever the state
    std::map<std::string, T_SMART_DISK> disks; // every disk ever seen, by name
    T_SMART_SETTINGS settings;
    T_SMART_SCHEDULE schedule;
    TLocalMinute local;
    std::string recording_disks; // what the recorder says of its disks, at most 1024 bytes
};

/* Looks at the disks once, at the hour's first check with SMART of all of them,
 * else only at those whose sole fault is their age. Returns state->changed. */
bool do_update_check(T_SMART_STATE *state);

/* --- Computing, for the above and for tests -------------------------------- */

/* The number in a disk's name: its sixth character and what follows, read as
 * hexadecimal; 0 where there is none. */
int32_t smart_disk_number(const std::string &name);

/* The state of a disk that the platform's list calls `status`, with more hours
 * than the threshold or not. */
T_SMART_LEVEL smart_disk_level(int32_t status, bool too_old);

/* What an event may say of a disk: no double quotes, at most 255 bytes. */
std::string smart_label(std::string_view text);
