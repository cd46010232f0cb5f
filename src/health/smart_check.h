#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "common/local_time.h"
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

/* When disk events are due and when a disk counts as old: section "hdd_health" of
 * the recorder's configuration. */
struct TSmartSettings {
    int threshold_hours = 20000; // more power-on hours give a warning
    std::string sch_type = "daily";
    int sch_weekday = 0; // 0 Sunday
    int sch_hour = 0;    // 0 to 23, local time
};

constexpr int kNoDay = 35; // no day of a month

/* The watcher's state. It lives as long as the process; only the watcher's thread uses
 * it, except for the first two, which queries read. */
struct TSmartState {
    std::atomic<int32_t> overall{kSmartNormal};                               // TSmartLevel
    std::atomic<uint32_t> report_time{static_cast<uint32_t>(wall_clock_s())}; // s, of the last report
    bool report_due = true;                  // the overall state has changed since the last report, or there was none
    std::map<std::string, TSmartDisk> disks; // every disk ever seen, by name
    std::string recording_disks;             // what the recorder says of its disks, at most 1024 bytes
    TSmartSettings settings;
    TLocalMinute local;
    uint64_t last_check_ms = 0;  // monotonic; 0: none yet
    bool first_check = true;     // the next check is the first of all
    int last_hour = 25;          // of the last hourly full check; 25: none yet
    bool scheduled_hour = false; // the schedule hour has begun and its events are not sent
    int last_day = kNoDay;       // of the month, on which events were sent
};

/* Checks the disks once: with SMART of all of them at the first check in minute 0 of an
 * hour and at the first of all, else only those in state hour_warning. Returns
 * state->report_due. */
bool do_update_check(TSmartState *state);
