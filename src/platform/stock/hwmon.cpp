#include "platform/stock/hwmon.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <string_view>

#include "platform/logging.h"
#include "platform/stock/text_file.h"

namespace {

constexpr const char *kRoot = "/sys/class/hwmon";
constexpr const char *kFailed = "9";

bool flag_is_set(const std::string &text)
{
    long long value = 0;
    return text_to_number(text, &value) && value != 0;
}

/* Reads one flag. False when the chip has it but does not give it now: then
 * nobody knows about this fan. */
bool read_flag(const std::string &path, std::string *out)
{
    std::string whole;
    const int result = text_file_read(path, 64, &whole);
    if (result == -ENOENT)
        return true;
    *out = text_trimmed(whole);
    if (result == 0 && !out->empty())
        return true;
    log_Debug("fan flag %s cannot be read", path.c_str());
    return false;
}

} // namespace

std::string hwmon_status(const T_HWMON_FAN &fan)
{
    return flag_is_set(fan.fault) || flag_is_set(fan.alarm) ? kFailed : "0";
}

std::string hwmon_summary(const std::vector<std::pair<std::string, std::string>> &fans)
{
    const bool failed = std::any_of(fans.begin(), fans.end(), [](const auto &fan) { return fan.second == kFailed; });
    return failed ? "fan failed" : "good";
}

std::vector<int> hwmon_fan_numbers(const std::vector<std::string> &attributes)
{
    std::set<int> numbers;
    for (const std::string_view attribute : attributes) {
        const size_t end = attribute.find('_');
        long long number = 0;
        if (!attribute.starts_with("fan") || end == std::string_view::npos ||
            !text_to_number(attribute.substr(3, end - 3), &number) || number < 0 || number > 999)
            continue;
        const std::string_view kind = attribute.substr(end + 1);
        if (kind == "fault" || kind == "alarm" || kind == "input")
            numbers.insert(static_cast<int>(number));
    }
    return {numbers.begin(), numbers.end()};
}

int hwmon_fans(std::vector<T_HWMON_FAN> *out)
{
    std::vector<std::string> chips;
    const int result = folder_names(kRoot, &chips);
    if (result != 0 && result != -ENOENT)
        return result;
    std::vector<T_HWMON_FAN> fans;
    for (const std::string &chip : chips) {
        const std::string folder = std::string(kRoot) + '/' + chip;
        std::vector<std::string> attributes;
        if (folder_names(folder, &attributes) != 0)
            continue; // unplugged since
        for (const int number : hwmon_fan_numbers(attributes)) {
            const std::string fan_path = folder + "/fan" + std::to_string(number);
            T_HWMON_FAN fan;
            if (!read_flag(fan_path + "_fault", &fan.fault) || !read_flag(fan_path + "_alarm", &fan.alarm))
                continue;
            fan.name = sysfs_text(fan_path + "_label");
            if (fan.name.empty())
                fan.name = sysfs_text(folder + "/name") + " fan" + std::to_string(number);
            fans.push_back(fan);
        }
    }
    *out = std::move(fans);
    return 0;
}
