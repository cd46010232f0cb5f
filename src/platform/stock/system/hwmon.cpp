#include "platform/stock/system/hwmon.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <string_view>

#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/system/text_file.h"

namespace {

constexpr const char *kRoot = "/sys/class/hwmon";
constexpr const char *kFailed = "9";

bool flag_is_set(const std::string &text)
{
    long long value = 0;
    return text_to_number(text, &value) && value != 0;
}

/* Reads the flags of one fan. False when the chip has a flag that cannot be read now: the fan's state is then
 * unknown. */
bool read_flags(const std::string &fan_path, std::vector<std::string> *out)
{
    for (const char *flag : kFanFlags) {
        const std::string path = fan_path + '_' + flag;
        std::string text;
        const int result = text_file_read(path, 64, &text);
        if (result == -ENOENT)
            continue;
        text = text_trimmed(text);
        if (result != 0 || text.empty()) {
            log_Debug("fan flag %s cannot be read", path.c_str());
            return false;
        }
        out->push_back(std::move(text));
    }
    return true;
}

} // namespace

std::string hwmon_status(const THwmonFan &fan)
{
    return std::any_of(fan.flags.begin(), fan.flags.end(), flag_is_set) ? kFailed : "0";
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
        if (kind == "input" || std::find(std::begin(kFanFlags), std::end(kFanFlags), kind) != std::end(kFanFlags))
            numbers.insert(static_cast<int>(number));
    }
    return {numbers.begin(), numbers.end()};
}

int hwmon_fans(std::vector<THwmonFan> *out)
{
    std::vector<std::string> chips;
    const int result = host_folder_names(kRoot, &chips);
    if (result != 0 && result != -ENOENT)
        return result;
    std::vector<THwmonFan> fans;
    for (const std::string &chip : chips) {
        const std::string folder = std::string(kRoot) + '/' + chip;
        std::vector<std::string> attributes;
        if (host_folder_names(folder, &attributes) != 0)
            continue; // unplugged meanwhile
        for (const int number : hwmon_fan_numbers(attributes)) {
            const std::string fan_path = folder + "/fan" + std::to_string(number);
            THwmonFan fan;
            if (!read_flags(fan_path, &fan.flags))
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
