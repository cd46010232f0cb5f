#include "health/smart_events.h"

#include "common/dashboard.h"
#include "common/debug_log.h"
#include "common/event_log.h"

namespace {

constexpr uint32_t kDiskWarning = 0x28010001;
constexpr uint32_t kDiskError = 0x28020001;
constexpr uint32_t kPowerOnHours = 0x28030001;

} // namespace

void do_update(TSmartState *state)
{
    state->report_time = static_cast<uint32_t>(wall_clock_s());
    const long long result = dashboard_post(
        "127.0.0.1", "disk", dashboard_status(state->report_time, "disk_update", kSmartLevelNames[state->overall]));
    if (result != 0)
        log_File_Debug(kLogSmart, "%s:%s (%d) ssci_POST_request failed (%lld)", kSmartSource, "do_update", 331, result);
}

void smart_send_disk_status(const TSmartState &state)
{
    for (const auto &[name, disk] : state.disks) {
        if (disk.state == kSmartWarning)
            send_ostra_log(kDiskWarning, disk.label);
        else if (disk.state == kSmartError)
            send_ostra_log(kDiskError, disk.label);
    }
}

void smart_send_power_on_hours(const TSmartState &state)
{
    if (state.recording_disks.empty())
        return;
    const int threshold = state.settings.threshold_hours;
    for (const auto &[name, disk] : state.disks) {
        if (disk.hours > threshold && state.recording_disks.find(disk.name) != std::string::npos)
            send_ostra_log(kPowerOnHours, disk.label, std::to_string(threshold).c_str(),
                           std::to_string(disk.hours).c_str());
    }
}
