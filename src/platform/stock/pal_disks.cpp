#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/block_devices.h"
#include "platform/stock/smartctl.h"

namespace {

/* What the disks said of themselves when they were last asked. The disk list is
 * read far more often than SMART and must not wake a disk, so its status comes
 * from here; a disk that was not asked yet counts as good. */
class TVerdicts {
public:
    void remember(const std::string &identity, T_DISK_VERDICT verdict)
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        /* Disks come and go, each plugging with an identity of its own. */
        if (m_verdicts.size() >= kMost && m_verdicts.count(identity) == 0)
            m_verdicts.clear();
        m_verdicts[identity] = verdict;
    }
    T_DISK_VERDICT of(const std::string &identity)
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        const auto found = m_verdicts.find(identity);
        return found != m_verdicts.end() ? found->second : T_DISK_VERDICT::unknown;
    }

private:
    static constexpr size_t kMost = 1024;
    std::mutex m_lock;
    std::map<std::string, T_DISK_VERDICT> m_verdicts; // guarded by m_lock
};

TVerdicts g_verdicts;

uint32_t list_disks(std::vector<T_BLOCK_DEVICE> *out)
{
    const int result = block_devices(out);
    if (result != 0)
        log_Debug("the disks cannot be listed: %s", strerror(-result));
    return static_cast<uint32_t>(-result);
}

void remember(const std::string &identity, const T_SMART_READING &reading)
{
    if (reading.passed.has_value() && !*reading.passed)
        g_verdicts.remember(identity, T_DISK_VERDICT::failing);
    else if (reading.attribute_low)
        g_verdicts.remember(identity, T_DISK_VERDICT::attribute_low);
    else if (reading.passed.has_value())
        g_verdicts.remember(identity, T_DISK_VERDICT::passed);
}

} // namespace

uint32_t PAL_storage_get_enclosure_list(const t_auth & /*auth*/, const t_storage_disk_input & /*in*/,
                                        t_storage_enclosure_info &out)
{
    std::vector<T_BLOCK_DEVICE> devices;
    if (const uint32_t result = list_disks(&devices); result != 0)
        return result;
    out.enclosure_count = 1; // the host itself
    out.disk_count = static_cast<int32_t>(devices.size());
    return 0;
}

uint32_t PAL_storage_get_disk_list(const t_auth & /*auth*/, const t_storage_disk_input &in, t_storage_disk_list &out)
{
    std::vector<T_BLOCK_DEVICE> devices;
    if (in.id != 0) {
        log_Debug("no enclosure %d", in.id);
        return ENODEV;
    }
    if (const uint32_t result = list_disks(&devices); result != 0)
        return result;
    t_storage_disk_list list;
    for (size_t i = 0; i < devices.size(); ++i) {
        const T_BLOCK_DEVICE &device = devices[i];
        char name[32];
        snprintf(name, sizeof(name), "disk_%02zx", i + 1);
        list.disks.push_back({name, device.model + " (/dev/" + device.name + ")", "present",
                              block_status(device.state, g_verdicts.of(device.identity))});
    }
    out = std::move(list);
    return 0;
}

/* A disk's number is its slot, 1 to N. Who goes through the disks of the
 * enclosure counts from 0 to N - 1 instead: number 0 is the last disk, so that
 * either way each is met once. */
uint32_t PAL_storage_get_disk_smart_info(const t_auth & /*auth*/, const t_storage_disk_input &in,
                                         t_storage_smart_info &out)
{
    std::vector<T_BLOCK_DEVICE> devices;
    if (const uint32_t result = list_disks(&devices); result != 0)
        return result;
    if (in.id < 0 || devices.empty() || static_cast<size_t>(in.id) > devices.size()) {
        log_Debug("no disk %d", in.id);
        return ENODEV;
    }
    const T_BLOCK_DEVICE &device = devices[(in.id > 0 ? static_cast<size_t>(in.id) : devices.size()) - 1];
    T_SMART_READING reading;
    if (const int result = smartctl_read(device.name, &reading); result != 0) {
        log_Debug("SMART of /dev/%s cannot be read: %s", device.name.c_str(), strerror(-result));
        return static_cast<uint32_t>(-result);
    }
    remember(device.identity, reading);
    if (!reading.passed.has_value() || !reading.power_on_hours.has_value()) {
        log_Debug("/dev/%s tells no %s", device.name.c_str(), reading.passed.has_value() ? "power-on hours" : "health");
        return ENODATA;
    }
    out.alert = *reading.passed ? 0 : 1;
    out.power_on_hours = *reading.power_on_hours;
    return 0;
}
