#include "health/smart_check.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

#include "base/file.h"
#include "base/text.h"
#include "common/debug_log.h"
#include "common/platform_call.h"
#include "platform/host_path.h"
#include "platform/kestrel.h"

namespace {

constexpr const char *kHourFile = "/tmp/hdd_power_on_hour";
constexpr size_t kRecordingDisksSize = 1024;

struct TPowerOnHours {
    int32_t hours = 0;
    bool too_old = false;
};

std::string read_recording_disks()
{
    const std::unique_ptr<FILE, int (*)(FILE *)> output(kestrel_popen("/usr/bin/vcmd", "get_rec_disk_list", nullptr),
                                                        kestrel_pclose);
    if (output == nullptr)
        return "";
    char text[kRecordingDisksSize];
    const std::string_view got(text, fread(text, 1, sizeof(text), output.get()));
    return std::string(got.substr(0, got.find('\0'))); // the text ends at the first NUL
}

/* Whether the check at this local time reads SMART of every disk; records it as done, and
 * whether it is the one of the schedule hour. */
bool is_full_check(TSmartState *state, const struct tm &now)
{
    bool full = std::exchange(state->first_check, false);
    if (now.tm_min == 0 && now.tm_hour != state->last_hour) {
        state->last_hour = now.tm_hour;
        full = true;
        if (now.tm_hour == state->settings.sch_hour)
            state->scheduled_hour = true;
    }
    return full;
}

/* Anyone may write to the folder, so only a regular file is opened. */
void append_hours(const TSmartDisk &disk, int32_t hours)
{
    const TFd file = regular_file_open(host_path(kHourFile), O_WRONLY | O_CREAT | O_APPEND);
    const std::string line = text_format("%s - [%s] power on hour [%8d]\n", disk.name, disk.label, hours);
    (void)regular_file_write(file, line.data(), line.size()); // best effort, also without a file
}

/* Nothing if a stop cancelled the reading. */
std::optional<TPowerOnHours> do_disk_smart_check(const t_auth &auth, int32_t number, int threshold)
{
    t_storage_smart_info info;
    const uint32_t result = PAL_storage_get_disk_smart_info(auth, {number}, info);
    if (result == PAL_CANCELLED)
        return std::nullopt;
    if (result != 0) {
        log_File_Debug(kLogSmart, "%s:%s (%d) PAL_storage_get_disk_smart_info failed=[%d]", kSmartSource,
                       "do_disk_smart_check", 149, static_cast<int>(result));
        return TPowerOnHours();
    }
    const int32_t hours = std::max(info.power_on_hours, 0);
    return TPowerOnHours{hours, hours > threshold};
}

/* The hours of a disk in state hour_warning, from the last full check; the other disks
 * are skipped between full checks. */
std::optional<TPowerOnHours> known_hours(const TSmartState &state, const std::string &name)
{
    const auto known = state.disks.find(name);
    if (known == state.disks.end() || known->second.state != kSmartHourWarning)
        return std::nullopt;
    return TPowerOnHours{known->second.hours, true};
}

/* The number in a disk's name, in hexadecimal behind "disk_"; 0 if there is none. */
int32_t number_of(const std::string &name)
{
    constexpr size_t kPrefix = 5;
    return name.size() > kPrefix ? static_cast<int32_t>(strtol(name.c_str() + kPrefix, nullptr, 16)) : 0;
}

/* The state of a disk that the platform's list calls `status`. */
TSmartLevel level_of(int32_t status, bool too_old)
{
    switch (status) {
    case 1:
        return kSmartWarning;
    case 2:
        return kSmartError;
    default:
        return too_old ? kSmartHourWarning : kSmartNormal;
    }
}

/* Checks one disk of the list and raises *highest to its level. False if a stop
 * cancelled the check. */
bool check_disk(TSmartState *state, const t_auth &auth, const t_storage_disk &entry, bool full, int32_t *highest)
{
    if (entry.presence.empty())
        return true;
    const int32_t number = number_of(entry.name);
    const std::optional<TPowerOnHours> found =
        full ? do_disk_smart_check(auth, number, state->settings.threshold_hours) : known_hours(*state, entry.name);
    if (!found)
        return !full;
    const TSmartLevel level = level_of(entry.status, found->too_old);
    TSmartDisk &disk = state->disks[entry.name];
    disk.state = level;
    if (found->hours != 0)
        disk.hours = found->hours;
    disk.number = number;
    std::string label = entry.label;
    std::erase(label, '"');
    text_copy(disk.label, label);
    text_copy(disk.name, entry.name);
    if (full)
        append_hours(disk, found->hours);
    *highest = std::max<int32_t>(*highest, level);
    return true;
}

void do_disk_list_check(TSmartState *state, const t_auth &auth, bool full)
{
    constexpr const char *kFunction = "do_disk_list_check";
    t_storage_enclosure_info enclosures;
    if (platform_failed(kLogSmart, kFunction, 203, "PAL_storage_get_enclosure_list",
                        PAL_storage_get_enclosure_list(auth, {}, enclosures)))
        return;
    if (full) {
        (void)unlink(host_path(kHourFile).c_str());
        state->recording_disks = read_recording_disks();
    }
    int32_t highest = kSmartNormal; // of all enclosures so far
    for (int32_t enclosure = 0; enclosure < enclosures.enclosure_count; ++enclosure) {
        t_storage_disk_list list;
        const uint32_t result = PAL_storage_get_disk_list(auth, {enclosure}, list);
        if (result == PAL_CANCELLED || platform_failed(kLogSmart, kFunction, 222, "PAL_storage_get_disk_list", result))
            return;
        for (const t_storage_disk &entry : list.disks) {
            if (!check_disk(state, auth, entry, full, &highest))
                return;
        }
        if (state->overall.exchange(highest) != highest)
            state->report_due = true;
    }
}

} // namespace

bool do_update_check(TSmartState *state)
{
    const bool full = is_full_check(state, local_time_of(wall_clock_s()));
    do_disk_list_check(state, platform_auth(kLogSmart, "do_update_check", 296), full);
    return state->report_due;
}
