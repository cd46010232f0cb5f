#include "platform/stock/smartctl.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <limits>
#include <mutex>
#include <set>

#include "platform/interrupt.h"
#include "platform/stock/child_process.h"
#include "platform/stock/json_handle.h"

namespace {

constexpr T_CHILD_LIMITS kLimits = {60, size_t{1024} * 1024, 500};
constexpr int kNoDataBits = 0x03;
constexpr int kAttributeLowBit = 0x10;
constexpr int kAllBits = 0xff;
constexpr auto kTurnSlice = std::chrono::milliseconds(100); // how soon a request to stop is seen

std::optional<int32_t> hours_of(json_object *value)
{
    if (!json_object_is_type(value, json_type_int) || json_object_get_int64(value) < 0)
        return std::nullopt;
    return static_cast<int32_t>(std::min<int64_t>(json_object_get_int64(value), std::numeric_limits<int32_t>::max()));
}

/* One disk, taken for the time of one child. */
class TDiskTurn {
public:
    explicit TDiskTurn(const std::string &disk) : m_disk(disk)
    {
        std::unique_lock<std::mutex> lock(s_lock);
        while (!platform_interrupted() && !(m_taken = s_busy.insert(disk).second))
            s_freed.wait_for(lock, kTurnSlice);
    }
    ~TDiskTurn()
    {
        const std::lock_guard<std::mutex> lock(s_lock);
        if (m_taken)
            s_busy.erase(m_disk);
        s_freed.notify_all();
    }
    TDiskTurn(const TDiskTurn &) = delete;
    TDiskTurn &operator=(const TDiskTurn &) = delete;

    bool is_taken() const { return m_taken; }

private:
    static inline std::mutex s_lock;
    static inline std::condition_variable s_freed;
    static inline std::set<std::string> s_busy; // guarded by s_lock
    const std::string m_disk;
    bool m_taken = false;
};

} // namespace

int smart_parse(std::string_view text, T_SMART_READING *out)
{
    const TJsonHandle document = json_handle_parse(text);
    json_object *protocol = json_handle_member(json_handle_member(document.get(), "device"), "protocol");
    if (!json_object_is_type(protocol, json_type_string))
        return -EINVAL;
    const std::string_view name = json_object_get_string(protocol);

    /* The raw value of attribute 9 counts minutes or half minutes on some disks,
     * and packs other figures into its upper bytes on others: the tool has
     * already worked out the hours. */
    T_SMART_READING reading;
    if (name == "ATA" || name == "SCSI")
        reading.power_on_hours =
            hours_of(json_handle_member(json_handle_member(document.get(), "power_on_time"), "hours"));
    else if (name == "NVMe")
        reading.power_on_hours = hours_of(json_handle_member(
            json_handle_member(document.get(), "nvme_smart_health_information_log"), "power_on_hours"));
    else
        return -EINVAL;

    json_object *passed = json_handle_member(json_handle_member(document.get(), "smart_status"), "passed");
    if (json_object_is_type(passed, json_type_boolean))
        reading.passed = json_object_get_boolean(passed) != 0;
    *out = reading;
    return 0;
}

bool smart_has_data(int exit_status)
{
    return exit_status >= 0 && exit_status <= kAllBits && (exit_status & kNoDataBits) == 0;
}

int smartctl_read(const std::string &disk, T_SMART_READING *out)
{
    const TDiskTurn turn(disk);
    if (!turn.is_taken())
        return -EINTR;
    const std::string node = "/dev/" + disk;
    std::string text;
    const int status =
        child_run({"/usr/sbin/smartctl", "--json", "-n", "standby", "-H", "-A", node.c_str()}, kLimits, &text);
    if (status < 0)
        return status;
    if (!smart_has_data(status))
        return -EAGAIN;
    T_SMART_READING reading;
    if (const int result = smart_parse(text, &reading); result != 0)
        return result;
    reading.attribute_low = (status & kAttributeLowBit) != 0;
    *out = reading;
    return 0;
}
