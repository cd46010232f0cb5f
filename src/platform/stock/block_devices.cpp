#include "platform/stock/block_devices.h"

#include "platform/stock/text_file.h"

bool block_name_is_disk(std::string_view name)
{
    for (const std::string_view kind : {"loop", "ram", "zram", "dm-", "md", "sr"}) {
        if (name.starts_with(kind))
            return false;
    }
    return true;
}

int block_devices(std::vector<T_BLOCK_DEVICE> *out)
{
    std::vector<std::string> names;
    if (const int result = folder_names("/sys/block", &names); result != 0)
        return result;
    std::vector<T_BLOCK_DEVICE> devices;
    for (const std::string &name : names) {
        const std::string folder = "/sys/block/" + name;
        long long sectors = 0;
        /* Hidden ones are single paths of a disk that stands there as well. */
        if (!block_name_is_disk(name) || !text_to_number(sysfs_text(folder + "/size"), &sectors) || sectors <= 0 ||
            sysfs_text(folder + "/hidden") == "1")
            continue;
        std::string model = sysfs_text(folder + "/device/model");
        if (model.empty())
            model = sysfs_text(folder + "/device/name"); // memory cards
        std::string identity;
        for (const std::string &part :
             {sysfs_text(folder + "/diskseq"), sysfs_text(folder + "/device/wwid"), name, model})
            identity.append(part).push_back('\n');
        devices.push_back({name, model.empty() ? "Disk" : model, sysfs_text(folder + "/device/state"), identity});
    }
    *out = std::move(devices);
    return 0;
}

int block_status(std::string_view state, T_DISK_VERDICT verdict)
{
    for (const std::string_view gone : {"offline", "transport-offline", "cancel", "deleted", "deleting", "dead"}) {
        if (state == gone)
            return -1;
    }
    switch (verdict) {
    case T_DISK_VERDICT::failing:
        return 2;
    case T_DISK_VERDICT::attribute_low:
        return 1;
    case T_DISK_VERDICT::unknown:
    case T_DISK_VERDICT::passed:
        break;
    }
    return 0;
}
