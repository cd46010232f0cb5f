#include "platform/stock/storage/md_array.h"

#include <vector>

#include "base/text.h"
#include "platform/stock/system/text_file.h"

namespace {

constexpr int kMaxLevels = 8; // of devices upon devices

} // namespace

int md_status(std::string_view array_state, std::string_view sync_action, std::string_view degraded)
{
    if (sync_action == "resync" || sync_action == "recover" || sync_action == "reshape")
        return kVolumeRebuilding;
    long long missing = 0;
    if (text_to_number(degraded, &missing) && missing > 0)
        return kVolumeFailed;
    if (array_state == "broken" || array_state == "inactive" || array_state == "clear")
        return kVolumeFailed;
    return kVolumeReady;
}

int volume_worse(int a, int b)
{
    const bool both_well = a >= 0 && b >= 0;
    return (both_well ? a > b : a < b) ? a : b;
}

namespace {

/* Of a device that is `level` devices deep. */
int status_below(const std::string &device_folder, int level)
{
    /* A partition's folder is inside that of its disk. */
    const std::string disk = sysfs_text(device_folder + "/partition").empty() ? device_folder : device_folder + "/..";
    const std::string array_state = sysfs_text(disk + "/md/array_state");
    int status = kVolumeReady;
    if (!array_state.empty())
        status = md_status(array_state, sysfs_text(disk + "/md/sync_action"), sysfs_text(disk + "/md/degraded"));
    std::vector<std::string> members;
    if (level < kMaxLevels && host_folder_names(disk + "/slaves", &members) == 0) {
        for (const std::string &member : members) {
            std::string below = disk;
            below.append("/slaves/").append(member);
            status = volume_worse(status, status_below(below, level + 1));
        }
    }
    return status;
}

} // namespace

int md_status_below(const std::string &device_folder)
{
    return status_below(device_folder, 0);
}
