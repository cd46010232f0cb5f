#include "health/smart_settings.h"

#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

#include "base/fd.h"
#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"

namespace {

using SmartSettings = fake::TPlatformTest;

TEST_F(SmartSettings, AreReadInOrderUntilOneFails)
{
    constexpr const char *keys[] = {"power_on_hour_threshold", "sch_type", "sch_weekday", "sch_hour"};
    const std::tuple<std::array<const char *, 4>, bool, int, const char *> cases[] = {
        // values, "!n" if the read fails with error number n; result, threshold in hours, log
        {{"100", "weekly", "3", "02"}, true, 100, "hour threshold=100, type=weekly, week day=3, hour=2"},
        {{"!8", "weekly", "3", "2"}, true, 20000, "hour threshold=20000, type=daily, week day=0, hour=0"},
        {{"7", "!8", "!8", "5"}, true, 7, "hour threshold=7, type=daily, week day=0, hour=5"},
        {{"!2", "x", "3", "2"}, false, 20000, ""},
        {{"7", "!2", "3", "2"}, false, 7, ""},
        {{"7", "x", "!3", "2"}, false, 7, "week day fail err_no=3"},
        {{"7", "x", "6", "!0"}, false, 7, "day hour fail err_no=0"},
    };
    std::string log;
    for (const auto &[values, result, threshold_hours, logged] : cases) {
        fake::state()->nvr_errors.clear();
        for (size_t i = 0; i < values.size(); ++i) {
            const std::string key = "hdd_health|" + std::string(keys[i]), value = values[i];
            fake::state()->nvr[key] = value;
            if (value[0] == '!')
                fake::state()->nvr_errors[key] = value[1] - '0';
        }
        TSmartState now;
        now.last_day = 3;
        EXPECT_EQ(get_hdd_health_setting(&now), result) << values[0] << logged;
        EXPECT_EQ(now.last_day, result ? kNoDay : 3); // settings that were read allow the events once more that day
        EXPECT_EQ(now.settings.threshold_hours, threshold_hours);
        log += *logged != '\0' ? std::string("get_hdd_health_setting() : ") + logged : "";
    }
    EXPECT_EQ(log_text(kLogSmart), log);
}

TEST_F(SmartSettings, TheOverrideFileCountsWhenItHoldsANumber)
{
    const std::string file = "/tmp/hdd_power_on_hour_threshold";
    EXPECT_EQ(smart_threshold(500), 500);
    const std::map<std::string, int> cases = {
        {"30\n", 30}, {"", 500}, {"0", 500}, {"many", 500}, {"5", 5}, {std::string(126, ' ') + "12", 1}, {"12x", 12}};
    for (const auto &[text, hours] : cases) {
        write_file(file, text);
        EXPECT_EQ(smart_threshold(500), hours) << text;
    }
    ASSERT_EQ(remove((root() + file).c_str()), 0);
    ASSERT_EQ(mkfifo((root() + file).c_str(), 0600), 0);
    const TFd writer(open((root() + file).c_str(), O_RDWR | O_CLOEXEC)); // a read would find this
    ASSERT_EQ(write(writer.get(), "30", 2), 2);
    EXPECT_EQ(smart_threshold(500), 500); // and does not wait for a writer
    ASSERT_EQ(remove((root() + file).c_str()), 0);
    write_file("/etc/secret", "77");
    ASSERT_EQ(symlink((root() + "/etc/secret").c_str(), (root() + file).c_str()), 0);
    EXPECT_EQ(smart_threshold(500), 500);
}

} // namespace
