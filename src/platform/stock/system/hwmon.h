#pragma once

#include <string>
#include <utility>
#include <vector>

/* The flags that a chip may have for a fan, as suffixes of attribute names. */
constexpr const char *kFanFlags[] = {"fault", "alarm", "min_alarm", "max_alarm"};

/* One fan of a monitoring chip, with the texts of the flags that the chip provides. */
struct THwmonFan {
    std::string name; // the board's label, else chip and number
    std::vector<std::string> flags;
};

/* "9" for a fan with a flag set, otherwise "0". A speed of 0 is not a fault: a header without a fan reads 0 as well. */
std::string hwmon_status(const THwmonFan &fan);

/* "good", or "fan failed" when a fan has status "9". */
std::string hwmon_summary(const std::vector<std::pair<std::string, std::string>> &fans);

/* The numbers of the fans among a chip's attributes ("fan1_input" and the like), ascending. */
std::vector<int> hwmon_fan_numbers(const std::vector<std::string> &attributes);

/* Lists all fans of "/sys/class/hwmon"; empty if that folder is missing. Returns 0 or -errno. */
int hwmon_fans(std::vector<THwmonFan> *out);
