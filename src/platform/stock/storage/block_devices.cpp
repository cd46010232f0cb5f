#include "platform/stock/storage/block_devices.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <set>
#include <utility>

#include "base/text.h"
#include "platform/host_path.h"
#include "platform/stock/system/text_file.h"

namespace {

constexpr std::string_view kSubsystems = "/devices/virtual/nvme-subsystem/";
constexpr const char *kDigits = "0123456789";

/* Whether the text is that word and a number, such as "host12". */
bool is_counted(std::string_view text, std::string_view word)
{
    return text.size() > word.size() && text.starts_with(word) &&
           text.find_first_not_of(kDigits, word.size()) == std::string_view::npos;
}

/* "1-2.4:1.0" */
bool is_usb_interface(std::string_view text)
{
    return text.find_first_of(kDigits) == 0 && text.find('-') < text.find(':') &&
           text.find_first_not_of("0123456789-.:") == std::string_view::npos;
}

/* Removes the first component of a path and returns it. */
std::string_view next_part(std::string_view *path)
{
    const size_t end = std::min(path->find('/'), path->size());
    const std::string_view part = path->substr(0, end);
    path->remove_prefix(std::min(end + 1, path->size()));
    return part;
}

/* Bus addresses are hexadecimal, or padded with zeros, and sort as they are. */
bool is_address(std::string_view part)
{
    return part.starts_with("pci") || part.find('.') != std::string_view::npos;
}

/* Compares two ports by their components: addresses come first, the others are ordered by the numbers in them ("ata2"
 * before "ata10"). */
bool port_before(std::string_view a, std::string_view b)
{
    while (!a.empty() || !b.empty()) {
        const std::string a_part(next_part(&a)), b_part(next_part(&b));
        if (is_address(a_part) != is_address(b_part))
            return is_address(a_part);
        const int order = is_address(a_part) ? a_part.compare(b_part) : strverscmp(a_part.c_str(), b_part.c_str());
        if (order != 0)
            return order < 0;
    }
    return false;
}

/* Resolves a path of sysfs to a place below "/sys"; empty when it cannot be resolved. */
std::string place_of(const std::string &path)
{
    char top[PATH_MAX], real[PATH_MAX];
    if (realpath(host_path("/sys").c_str(), top) == nullptr || realpath(host_path(path).c_str(), real) == nullptr)
        return {};
    std::string_view place = real;
    if (place.starts_with(top))
        place.remove_prefix(std::string_view(top).size());
    return std::string(place);
}

/* An NVMe disk with several paths belongs to a subsystem. Its port is that of its first controller, and it is alive as
 * long as one of them is. */
std::string controller_of(const std::string &device, std::string *state)
{
    std::vector<std::string> names;
    (void)host_folder_names(device, &names);
    std::erase_if(names, [](const std::string &name) { return !is_counted(name, "nvme"); });
    std::string place;
    for (const std::string &name : names) {
        std::string folder = device;
        folder.append("/").append(name);
        if (place.empty())
            place = place_of(folder);
        if (state->empty() || block_is_given_up(*state))
            *state = sysfs_text(folder + "/state");
    }
    return place;
}

/* The kernel numbers the devices of a SAS host in the order of their attachment. The port is made of the expanders on
 * the path, by their addresses, and the last phy. Empty when the kernel does not know them. */
std::string sas_port(std::string_view place)
{
    std::string port = block_port(place.substr(0, place.find("/port-")));
    std::string folder = "/sys";
    std::string_view rest = place;
    while (!rest.empty()) {
        const std::string part(next_part(&rest));
        folder.append("/").append(part);
        std::string attributes = folder;
        attributes.append("/sas_device/").append(part);
        if (part.starts_with("expander-"))
            port.append("/").append(sysfs_text(attributes + "/sas_address"));
        if (!part.starts_with("end_device-"))
            continue;
        const std::string phy = sysfs_text(attributes + "/phy_identifier");
        return phy.empty() ? phy : port.append("/phy").append(phy).append(place.substr(place.rfind(':')));
    }
    return {};
}

/* Whether a device with that name, at that place below "/sys", can be a disk: not a virtual device (except NVMe with
 * several paths), a flash translation layer, a network image, or the boot or rpmb part of a memory card. */
bool is_disk(std::string_view name, std::string_view place)
{
    if (place.starts_with("/devices/virtual/") && !place.starts_with(kSubsystems))
        return false;
    if (is_counted(name, "rbd") || is_counted(name, "mtdblock"))
        return false;
    return !name.starts_with("mmcblk") ||
           (name.find("boot") == std::string_view::npos && name.find("rpmb") == std::string_view::npos);
}

/* The first of the attributes that has a text. None of them sends a command to the disk: the kernel read it all when
 * the disk was attached. */
std::string first_text(const std::string &folder, std::initializer_list<const char *> attributes)
{
    for (const char *attribute : attributes) {
        if (std::string text = sysfs_text(folder + attribute); !text.empty())
            return text;
    }
    return {};
}

/* Nothing when the disk does not exist. */
std::optional<TBlockDevice> read_device(const std::string &name)
{
    const std::string folder = "/sys/block/" + name;
    const std::string device = folder + "/device";
    const std::string place = place_of(folder);
    if (!is_disk(name, place)) // before anything else is read: most names are of loop devices and the like
        return std::nullopt;
    std::string device_place = place_of(device);
    if (device_place.empty() || sysfs_text(folder + "/removable") == "1" || sysfs_text(folder + "/hidden") == "1")
        return std::nullopt;
    TBlockDevice found;
    found.name = name;
    found.state = sysfs_text(device + "/state");
    if (place.starts_with(kSubsystems))
        device_place = controller_of(device, &found.state);
    long long sectors = 0;
    const bool empty = !text_to_number(sysfs_text(folder + "/size"), &sectors) || sectors <= 0;
    if (empty && !block_is_given_up(found.state))
        return std::nullopt;
    found.model = first_text(device, {"/model", "/name"}); // memory cards have a name
    found.port = sas_port(device_place);
    if (found.port.empty())
        found.port = block_port(device_place);
    if (name.starts_with("nvme")) // one controller may have several disks
        found.port.append("/").append(name, name.rfind('n'));
    found.identity = first_text(folder, {"/wwid", "/device/wwid", "/device/serial", "/device/cid", "/device/vpd_pg80"});
    if (found.identity.empty())
        found.identity = found.port + '\n' + sysfs_text(folder + "/diskseq") + '\n' + found.model;
    if (found.model.empty())
        found.model = "Disk";
    found.suspended = sysfs_text(device + "/power/runtime_status") == "suspended";
    return found;
}

} // namespace

std::string block_port(std::string_view device_path)
{
    std::string port;
    std::string_view before; // the component before this one
    bool host_counts = true;
    while (!device_path.empty()) {
        std::string_view part = next_part(&device_path);
        const std::string_view parent = std::exchange(before, part);
        if (part.empty() || part == "nvme" || is_counted(part, "nvme") || is_counted(part, "virtio") ||
            part.starts_with("target"))
            continue;
        if (is_counted(part, "host") &&
            (is_counted(parent, "ata") || is_counted(parent, "virtio") || is_usb_interface(parent))) {
            host_counts = false;
            continue;
        }
        if (is_counted(parent, "mmc") && part.starts_with(parent))
            continue; // "mmc0:59b4", which depends on the card
        if (parent.starts_with("target") && !host_counts)
            part.remove_prefix(std::min(part.find(':') + 1, part.size())); // keeps channel, target and unit
        port.append("/").append(part);
    }
    return port;
}

int block_devices(std::vector<TBlockDevice> *out)
{
    std::vector<std::string> names;
    if (const int result = host_folder_names("/sys/block", &names); result != 0)
        return result;
    std::vector<TBlockDevice> devices;
    std::set<std::string> ports, identities;
    for (const std::string &name : names) {
        std::optional<TBlockDevice> device = read_device(name);
        if (!device)
            continue;
        if (!ports.insert(device->port).second)
            device->port.append("/").append(name);
        if (!identities.insert(device->identity).second) // cheap bridges share a serial number
            device->identity.append("\n").append(device->port);
        devices.push_back(std::move(*device));
    }
    std::sort(devices.begin(), devices.end(),
              [](const TBlockDevice &a, const TBlockDevice &b) { return port_before(a.port, b.port); });
    *out = std::move(devices);
    return 0;
}

bool block_is_given_up(std::string_view state)
{
    return state == "offline" || state == "transport-offline" || state == "dead";
}

int block_status(std::string_view state, const TSmartReading &known)
{
    if (state == "cancel" || state == "deleted" || state == "deleting")
        return -1;
    if (block_is_given_up(state) || !known.passed.value_or(true))
        return 2;
    return known.worn ? 1 : 0;
}
