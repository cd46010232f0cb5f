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
    g_stock_root.write(chip + "/fan1_input", "0\n");
    g_stock_root.write(chip + "/fan1_fault", "1\n");
    g_stock_root.write(chip + "/fan2_input", "900\n");
    g_stock_root.write(chip + "/fan2_alarm", "0\n");
    g_stock_root.write(chip + "/fan2_label", "Rear fan\n");
    g_stock_root.folder(chip + "/fan3_alarm");       // cannot be read: unknown
    g_stock_root.write(chip + "/fan4_input", "0\n"); // a header without a fan
    g_stock_root.write(chip + "/fan5_min_alarm", "1\n");
    g_stock_root.write(chip + "/fan6_alarm", "0\n");
    g_stock_root.write(chip + "/fan6_max_alarm", "1\n");
    g_stock_root.write(chip + "/fan10_alarm", "0\n");
    for (const char *no_fan : {"fan7_min", "fan8", "fan_input", "fanx_input", "temp1_input", "pwm1_input"})
        g_stock_root.write(chip + "/" + no_fan, "1\n");
    EXPECT_EQ(PAL_mgr_syshealth_info(nullptr, &info, &text), 0U);
    EXPECT_EQ(info.fans, (TFans{{"nct6775 fan1", "9"},
                                {"Rear fan", "0"},
                                {"nct6775 fan4", "0"},
                                {"nct6775 fan5", "9"},
                                {"nct6775 fan6", "9"},
                                {"nct6775 fan10", "0"}}));
    EXPECT_EQ(text, "fan failed");
    for (const char *flag : {"/fan1_fault", "/fan5_min_alarm", "/fan6_max_alarm"})
        g_stock_root.write(chip + flag, "0\n");
    EXPECT_EQ(PAL_mgr_syshealth_info(nullptr, &info, &text), 0U);
    EXPECT_EQ(info.text + text, "goodgood");
}

} // namespace
