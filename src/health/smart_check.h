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

enum TSmartLevel : int32_t { kSmartNormal, kSmartHourWarning, kSmartWarning, kSmartError, kSmartLevels };
constexpr const char *kSmartLevelNames[kSmartLevels] = {"normal", "hour_warning", "warning", "error"};

struct TSmartDisk {
    int32_t state = kSmartNormal; // TSmartLevel
    int32_t hours = 0;            // powered on; 0: never read
    int32_t number = 0;           // as the platform counts disks
    char label[256] = {};         // without double quotes
    char name[128] = {};
};

/* The watcher's state. It lives as long as the process; only the watcher's thread uses
 * it, except for the first two, which queries read. */
struct TSmartState {
    std::atomic<int32_t> overall{kSmartNormal};                               // TSmartLevel
    std::atomic<uint32_t> report_time{static_cast<uint32_t>(wall_clock_s())}; // s, of the last report
    bool changed = false;                    // the overall state has, since the last report
    bool report_pending = true;              // report once, whatever the state
    std::map<std::string, TSmartDisk> disks; // every disk ever seen, by name
    TSmartSettings settings;
    TSmartSchedule schedule;
    TLocalMinute local;
    std::string recording_disks; // what the recorder says of its disks, at most 1024 bytes
};

/* Checks the disks once: with SMART of all of them at the first check of an hour, else
 * only those in state hour_warning. Returns state->changed. */
bool do_update_check(TSmartState *state);

/* --- Computing, for the above and for tests -------------------------------- */

/* The number in a disk's name: its sixth character and what follows, read as
 * hexadecimal; 0 if there is none. */
int32_t smart_disk_number(const std::string &name);

/* The state of a disk that the platform's list calls `status`, with more hours
 * than the threshold or not. */
TSmartLevel smart_disk_level(int32_t status, bool too_old);

/* The label of a disk for events: without double quotes, at most 255 bytes. */
std::string smart_label(std::string_view text);
