#include <cerrno>
#include <cstdio>
#include <map>
#include <utility>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/storage/block_devices.h"
#include "platform/stock/storage/disk_health.h"
#include "platform/stock/storage/smart_reader.h"
#include "platform/time_stamp.h"

namespace {

TSmartOutcome ask_disk(const std::string &disk, bool may_wake, TSmartReading *out, int *error)
{
    std::string text;
    const int status = smart_document(disk, may_wake, &text);
    if (status >= 0)
        return smart_outcome(status, text, out);
    *error = status;
    return TSmartOutcome::kNoAnswer;
}

TSmartMoment moment_now()
{
    const auto wall_s = static_cast<time_t>(current_time_stamp() / 1000);
    return {current_time_stamp_mono_r(), wall_s, get_local_time(wall_s)};
}

TDiskHealth g_health(ask_disk, moment_now);

/* The calling thread has queried the enclosures and not yet their disks: this is how the SMART check begins, which
 * needs the present state. */
thread_local bool t_checks_health = false;

/* Lists the disks by their numbers. These are assigned to ports, from 1, in the order in which the ports are first
 * listed, and never change: removing a disk renumbers no other, and the next disk in its port gets the same number. */
uint32_t list_disks(std::map<int, TBlockDevice> *out)
{
    static TMutex lock;
    static std::map<std::string, int> numbers GUARDED_BY(lock);
    std::vector<TBlockDevice> devices;
    if (const int result = block_devices(&devices); result != 0) {
        log_Debug("the disks cannot be listed: %s", error_text(-result).c_str());
        return static_cast<uint32_t>(-result);
    }
    const TLock guard(lock);
    for (TBlockDevice &device : devices) {
        const auto port = numbers.try_emplace(device.port, static_cast<int>(numbers.size()) + 1).first;
        out->emplace(port->second, std::move(device));
    }
    return 0;
}

/* As TDiskHealth::read(), without querying a disk that its transport has given up. */
int read_health(const TBlockDevice &device, TSmartReading *out)
{
    return block_is_given_up(device.state) ? -ENXIO : g_health.read(device, out);
}

} // namespace

/* Disk numbers start at 1 and may have gaps. A caller that counts from 0 to disk_count - 1 reaches each disk once. */
uint32_t PAL_storage_get_enclosure_list(const t_auth & /*auth*/, const t_storage_disk_input & /*in*/,
                                        t_storage_enclosure_info &out)
{
    std::map<int, TBlockDevice> disks;
    if (const uint32_t result = list_disks(&disks); result != 0)
        return result;
    t_checks_health = true;
    out.enclosure_count = 1; // the host itself
    out.disk_count = disks.empty() ? 0 : disks.rbegin()->first + 1;
    return 0;
}

uint32_t PAL_storage_get_disk_list(const t_auth & /*auth*/, const t_storage_disk_input &in, t_storage_disk_list &out)
{
    const bool checks_health = std::exchange(t_checks_health, false);
    if (in.id != 0) {
        log_Debug("no enclosure %d", in.id);
        return ENODEV;
    }
    std::map<int, TBlockDevice> disks;
    if (const uint32_t result = list_disks(&disks); result != 0)
        return result;
    t_storage_disk_list list;
    for (const auto &[number, device] : disks) {
        TSmartReading reading;
        if (checks_health && (platform_interrupted() || read_health(device, &reading) == -EINTR))
            return PAL_CANCELLED;
        char name[32];
        snprintf(name, sizeof(name), "disk_%02x", static_cast<unsigned>(number));
        list.disks.push_back({name, device.model + " (/dev/" + device.name + ")", "present",
                              block_status(device.state, g_health.known(device.identity))});
    }
    out = std::move(list);
    return 0;
}

/* A number without a disk and a disk without SMART are neither failures in a loop over all numbers nor logged. */
uint32_t PAL_storage_get_disk_smart_info(const t_auth & /*auth*/, const t_storage_disk_input &in,
                                         t_storage_smart_info &out)
{
    std::map<int, TBlockDevice> disks;
    if (const uint32_t result = list_disks(&disks); result != 0)
        return result;
    const auto disk = disks.find(in.id);
    if (disk == disks.end())
        return 0;
    TSmartReading reading;
    if (const int result = read_health(disk->second, &reading); result != 0)
        return result == -EINTR ? PAL_CANCELLED : static_cast<uint32_t>(-result);
    if (reading.passed.has_value())
        out.alert = *reading.passed ? 0 : 1;
    if (reading.power_on_hours.has_value())
        out.power_on_hours = *reading.power_on_hours;
    return 0;
}
