#include <gtest/gtest.h>

#include "platform/pal.h"
#include "platform/stock_root.h"

namespace {

using TFans = std::vector<std::pair<std::string, std::string>>;

TEST(Fans, AreReadFromAllChipsAndSummedUp)
{
    g_stock_root.remove("/sys/class/hwmon");
    t_syshealth_info info;
    std::string text;
    EXPECT_EQ(PAL_mgr_syshealth_info(nullptr, &info, nullptr), 0U);
    EXPECT_TRUE(info.fans.empty());

    const std::string chip = "/sys/devices/chip/hwmon1";
    g_stock_root.link("../../devices/chip/hwmon1", "/sys/class/hwmon/hwmon1");
    g_stock_root.write(chip + "/name", "nct6775\n");
    g_stock_root.write(chip + "/fan2_label", "Rear fan\n");
    g_stock_root.folder(chip + "/fan3_alarm"); // cannot be read: unknown
    g_stock_root.write(chip + "/fan9_alarm", "\n");
    for (const char *well :
         {"/fan0_alarm", "/fan1_input", "/fan2_alarm", "/fan4_input", "/fan6_alarm", "/fan999_alarm"})
        g_stock_root.write(chip + well, "0\n");
    for (const char *set : {"/fan1_fault", "/fan2_input", "/fan5_min_alarm", "/fan6_max_alarm", // and no fans:
                            "/fan7_min", "/fan_input", "/fan1000_input", "/fan-1_input", "/fan8", "/pwm8_input"})
        g_stock_root.write(chip + set, "1\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(PAL_mgr_syshealth_info(nullptr, &info, &text), 0U);
    EXPECT_EQ(info.fans, (TFans{{"nct6775 fan0", "0"},
                                {"nct6775 fan1", "9"},
                                {"Rear fan", "0"},
                                {"nct6775 fan4", "0"},
                                {"nct6775 fan5", "9"},
                                {"nct6775 fan6", "9"},
                                {"nct6775 fan999", "0"}}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "fan flag /sys/class/hwmon/hwmon1/fan3_alarm cannot be read\n"
                                                      "fan flag /sys/class/hwmon/hwmon1/fan9_alarm cannot be read\n");
    EXPECT_EQ(text, "fan failed");
    for (const char *flag : {"/fan1_fault", "/fan5_min_alarm", "/fan6_max_alarm"})
        g_stock_root.write(chip + flag, "0\n");
    EXPECT_EQ(PAL_mgr_syshealth_info(nullptr, &info, &text), 0U);
    EXPECT_EQ(info.text + text, "goodgood");
}

} // namespace
