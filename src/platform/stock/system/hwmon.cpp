#include <algorithm>
#include <cerrno>
#include <set>
#include <string_view>

#include "base/text.h"
#include "platform/logging.h"
#include "platform/pal.h"
#include "platform/stock/system/text_file.h"

namespace {

using TFans = std::vector<std::pair<std::string, std::string>>;

constexpr const char *kRoot = "/sys/class/hwmon";
constexpr const char *kFailed = "9";
/* The flags that a chip may have for a fan, as suffixes of attribute names. */
constexpr const char *kFlags[] = {"fault", "alarm", "min_alarm", "max_alarm"};

/* Failed with a flag set, otherwise "0". A speed of 0 is not a fault: a header without a fan reads 0 as well. Empty
 * when the chip has a flag that cannot be read now: the fan's state is then unknown. */
std::string fan_status(const std::string &fan_path)
{
    std::string status = "0";
    for (const char *flag : kFlags) {
        const std::string path = fan_path + '_' + flag;
        std::string text;
        const int result = text_file_read(path, 64, &text);
        if (result == -ENOENT)
            continue;
        const std::string_view figure = text_trimmed(text);
        if (result != 0 || figure.empty()) {
            log_Debug("fan flag %s cannot be read", path.c_str());
            return "";
        }
        long long value = 0;
        if (text_to_number(figure, &value) && value != 0)
            status = kFailed;
    }
    return status;
}

/* The numbers of the fans among a chip's attributes ("fan1_input" and the like). */
std::set<int> fan_numbers(const std::vector<std::string> &attributes)
{
    std::set<int> numbers;
    for (const std::string_view attribute : attributes) {
        const size_t end = attribute.find('_');
        long long number = 0;
        if (!attribute.starts_with("fan") || end == std::string_view::npos ||
            !text_to_number(attribute.substr(3, end - 3), &number) || number < 0 || number > 999)
            continue;
        const std::string_view kind = attribute.substr(end + 1);
        if (kind == "input" || std::find(std::begin(kFlags), std::end(kFlags), kind) != std::end(kFlags))
            numbers.insert(static_cast<int>(number));
    }
    return numbers;
}

/* Adds the fans of one chip, each under the board's label, or else by chip and number. */
void add_fans(const std::string &folder, TFans *fans)
{
    std::vector<std::string> attributes;
    (void)host_folder_names(folder, &attributes); // fails for a chip that was unplugged meanwhile
    for (const int number : fan_numbers(attributes)) {
        const std::string fan_path = folder + "/fan" + std::to_string(number);
        const std::string status = fan_status(fan_path);
        if (status.empty())
            continue;
        std::string name = sysfs_text(fan_path + "_label");
        if (name.empty())
            name = sysfs_text(folder + "/name") + " fan" + std::to_string(number);
        fans->emplace_back(std::move(name), status);
    }
}

} // namespace

uint32_t PAL_mgr_syshealth_info(const t_auth * /*auth*/, t_syshealth_info *info, std::string *text)
{
    std::vector<std::string> chips;
    if (const int result = host_folder_names(kRoot, &chips); result != 0 && result != -ENOENT) {
        log_Debug("fans cannot be read: %s", error_text(-result).c_str());
        return static_cast<uint32_t>(-result);
    }
    t_syshealth_info health;
    for (const std::string &chip : chips)
        add_fans(std::string(kRoot) + '/' + chip, &health.fans);
    const bool failed =
        std::any_of(health.fans.begin(), health.fans.end(), [](const auto &fan) { return fan.second == kFailed; });
    health.text = failed ? "fan failed" : "good";
    if (text != nullptr)
        *text = health.text;
    *info = std::move(health);
    return 0;
}
