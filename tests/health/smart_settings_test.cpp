#include "health/smart_settings.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

namespace {

class SmartSettings : public fake::TPlatformTest {};

TEST_F(SmartSettings, AreReadInOrderUntilOneFails)
{
    const std::vector<std::string> keys = {"power_on_hour_threshold", "sch_type", "sch_weekday", "sch_hour"};
    struct T_CASE {
        const char *values[4]; // "!n": the read fails with error number n
        bool result;
        const char *settings, *log;
    };
    const T_CASE cases[] = {
        {{"100", "weekly", "3", "02"}, true, "hour threshold=100, type=weekly, week day=3, hour=2", "all"},
        {{"!8", "weekly", "3", "2"}, true, "hour threshold=20000, type=daily, week day=0, hour=0", "all"},
        {{"7", "!8", "!8", "5"}, true, "hour threshold=7, type=daily, week day=0, hour=5", "all"},
        {{"!2", "x", "3", "2"}, false, "hour threshold=20000, type=daily, week day=0, hour=0", ""},
        {{"7", "!2", "3", "2"}, false, "hour threshold=7, type=daily, week day=0, hour=0", ""},
        {{"7", "x", "!3", "2"}, false, "hour threshold=7, type=x, week day=0, hour=0", "week day fail err_no=3"},
        {{"7", "x", "6", "!0"}, false, "hour threshold=7, type=x, week day=6, hour=0", "day hour fail err_no=0"},
    };
    for (const T_CASE &one : cases) {
        write_file(kLogSmart, "");
        const auto read = [&](const char *key, std::string &out, int *err_no) {
            const char *value = one.values[std::find(keys.begin(), keys.end(), key) - keys.begin()];
            if (value[0] != '!')
                out = value;
            *err_no = value[1] - '0';
            return value[0] == '!' ? -1 : 0;
        };
        T_SMART_SETTINGS now;
        EXPECT_EQ(get_hdd_health_setting(read, &now), one.result) << one.settings;
        const std::string settings = "hour threshold=" + std::to_string(now.threshold_hours) +
                                     ", type=" + now.sch_type + ", week day=" + std::to_string(now.sch_weekday) +
                                     ", hour=" + std::to_string(now.sch_hour);
        EXPECT_EQ(settings, one.settings);
        const std::string log = std::string(one.log) == "all" ? settings : one.log;
        EXPECT_EQ(log_text(kLogSmart), log.empty() ? "" : "get_hdd_health_setting() : " + log);
    }
}

TEST_F(SmartSettings, TheOverrideFileCountsWhenItHoldsANumber)
{
    const std::string file = "/tmp/hdd_power_on_hour_threshold";
    EXPECT_EQ(smart_threshold(500), 500);
    const std::map<std::string, int> cases = {
        {"30\n", 30}, {"", 500}, {"0", 500}, {"many", 500}, {std::string(126, ' ') + "12", 1}, {"12x", 12}};
    for (const auto &[text, hours] : cases) {
        write_file(file, text);
        EXPECT_EQ(smart_threshold(500), hours) << text;
    }
    ASSERT_EQ(remove((root() + file).c_str()), 0);
    ASSERT_EQ(mkfifo((root() + file).c_str(), 0600), 0);
    EXPECT_EQ(smart_threshold(500), 500); // and does not wait for a writer
}

} // namespace
