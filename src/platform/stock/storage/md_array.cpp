#include "platform/stock/storage/md_array.h"

#include <vector>

#include "base/text.h"
#include "platform/stock/system/text_file.h"

namespace {

constexpr int kMaxLevels = 8; // of devices upon devices

} // namespace

int md_status(const TMdTexts &texts)
{
    if (texts.sync_action == "resync" || texts.sync_action == "recover" || texts.sync_action == "reshape")
        return kVolumeRebuilding;
    long long missing = 0;
    if (text_to_number(texts.degraded, &missing) && missing > 0)
        return kVolumeFailed;
    if (texts.array_state == "broken" || texts.array_state == "inactive" || texts.array_state == "clear")
        return kVolumeFailed;
    return kVolumeReady;
}

int volume_worse(int a, int b)
{
    const bool both_well = a >= 0 && b >= 0;
    return (both_well ? a > b : a < b) ? a : b;
}

int md_status_below(const std::string &device_folder, int level)
{
    /* A partition's folder is inside that of its disk. */
    const std::string disk = sysfs_text(device_folder + "/partition").empty() ? device_folder : device_folder + "/..";
    const TMdTexts texts = {sysfs_text(disk + "/md/array_state"), sysfs_text(disk + "/md/sync_action"),
                            sysfs_text(disk + "/md/degraded")};
    int status = texts.array_state.empty() ? kVolumeReady : md_status(texts);
    std::vector<std::string> members;
    if (level < kMaxLevels && host_folder_names(disk + "/slaves", &members) == 0) {
        for (const std::string &member : members) {
            std::string below = disk;
            below.append("/slaves/").append(member);
            status = volume_worse(status, md_status_below(below, level + 1));
        }
    }
    return status;
}
