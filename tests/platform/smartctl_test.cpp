#include "platform/stock/smartctl.h"

#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <thread>

#include "platform/interrupt.h"
#include "platform/pal.h"
#include "platform/stock/block_devices.h"
#include "platform/stock_root.h"

namespace {

constexpr const char *kTool = "/usr/sbin/smartctl";

std::string document(const char *protocol, const char *rest)
{
    return std::string(R"({"smartctl":{"version":[7,3],"exit_status":0},"device":{"name":"/dev/sda","protocol":")") +
           protocol + "\"}," + rest + "}";
}

struct T_CASE {
    const char *name;
    std::string text;
    int result;
    int passed; // -1 for not told
    int hours;  // -1 for not told
};

class SmartParse : public testing::TestWithParam<T_CASE> {};

TEST_P(SmartParse, TakesVerdictAndHoursOrNothing)
{
    T_SMART_READING got;
    ASSERT_EQ(smart_parse(GetParam().text, &got), GetParam().result);
    EXPECT_EQ(got.passed.has_value() ? static_cast<int>(*got.passed) : -1, GetParam().passed);
    EXPECT_EQ(got.power_on_hours.value_or(-1), GetParam().hours);
}

const std::string kAta = document(
    "ATA",
    R"("smart_status":{"passed":true},"ata_smart_attributes":{"table":[{"id":9,"name":"Power_On_Hours","raw":{"value":987654,"string":"987654h+12m"}}]},"power_on_time":{"hours":20001,"minutes":12})");

INSTANTIATE_TEST_SUITE_P(
    Documents, SmartParse,
    testing::Values(
        T_CASE{"AtaHoursAreNotTheRawAttribute", kAta, 0, 1, 20001},
        T_CASE{"AtaWithoutHours", document("ATA", R"("smart_status":{"passed":false})"), 0, 0, -1},
        T_CASE{"Scsi",
               document("SCSI",
                        R"("smart_status":{"passed":false,"scsi":{"asc":93}},"power_on_time":{"hours":7,"minutes":1})"),
               0, 0, 7},
        T_CASE{
            "Nvme",
            document(
                "NVMe",
                R"("smart_status":{"passed":true,"nvme":{"value":0}},"nvme_smart_health_information_log":{"critical_warning":0,"power_on_hours":42})"),
            0, 1, 42},
        T_CASE{
            "MoreHoursThanFit",
            document(
                "NVMe",
                R"("smart_status":{"passed":true},"nvme_smart_health_information_log":{"power_on_hours":18446744073709551615})"),
            0, 1, INT_MAX},
        T_CASE{"WrongTypes", document("ATA", R"("smart_status":["passed"],"power_on_time":{"hours":"20001"})"), 0, -1,
               -1},
        T_CASE{"NegativeHours", document("ATA", R"("power_on_time":{"hours":-5})"), 0, -1, -1},
        T_CASE{"ForeignProtocol", document("Tape", R"("smart_status":{"passed":true})"), -EINVAL, -1, -1},
        T_CASE{"NoDevice", R"({"smart_status":{"passed":true}})", -EINVAL, -1, -1},
        T_CASE{"CutShort", kAta.substr(0, kAta.size() - 1), -EINVAL, -1, -1},
        T_CASE{"RubbishBehind", kAta + "]", -EINVAL, -1, -1}, T_CASE{"Array", "[1]", -EINVAL, -1, -1},
        T_CASE{"Deep", std::string(100000, '['), -EINVAL, -1, -1}, T_CASE{"Empty", "", -EINVAL, -1, -1}),
    [](const auto &one) { return std::string(one.param.name); });

TEST(SmartRead, OnlyTheTwoLowBitsOfTheExitStatusMeanNoData)
{
    for (int status = 0; status < 256; ++status)
        EXPECT_EQ(smart_has_data(status), status % 4 == 0) << status;
    EXPECT_FALSE(smart_has_data(-EINTR));
    EXPECT_FALSE(smart_has_data(256 + 4)); // ended by a signal
}

TEST(SmartRead, AsksWithoutWakingAndTakesWhatComes)
{
    T_SMART_READING got;
    g_stock_root.remove(kTool);
    EXPECT_EQ(smartctl_read("sda", &got), -ENOENT);
    g_stock_root.tool(kTool, "echo 'no JSON'\n");
    EXPECT_EQ(smartctl_read("sda", &got), -EINVAL);
    g_stock_root.tool(kTool, "exec head -c 10000000 /dev/zero\n");
    EXPECT_EQ(smartctl_read("sda", &got), -EFBIG);
    g_stock_root.tool(kTool, "echo '" + kAta + "'; exit 2\n"); // asleep
    EXPECT_EQ(smartctl_read("sda", &got), -EAGAIN);
    EXPECT_FALSE(got.power_on_hours.has_value());
    g_stock_root.tool(kTool, "echo \"$@\" > \"$VELOMOND_ROOT/told\"; echo '" + kAta + "'; exit 84\n");
    EXPECT_EQ(smartctl_read("sda", &got), 0);
    EXPECT_EQ(got.power_on_hours, 20001);
    EXPECT_TRUE(got.attribute_low);
    EXPECT_EQ(g_stock_root.read("/told"), "--json -n standby -H -A /dev/sda\n");
}

TEST(SmartRead, OneDiskHasOneChildAtATime)
{
    g_stock_root.remove("/busy");
    g_stock_root.tool(kTool,
                      "mkdir \"$VELOMOND_ROOT/busy\" || exit 1\nsleep 0.05\nrmdir \"$VELOMOND_ROOT/busy\"\necho '" +
                          kAta + "'\n");
    const auto ask = [] {
        T_SMART_READING got;
        EXPECT_EQ(smartctl_read("sda", &got), 0);
    };
    std::thread others[3];
    for (std::thread &other : others)
        other = std::thread(ask);
    for (std::thread &other : others)
        other.join();
}

TEST(SmartRead, AWaitForTheTurnEndsWithARequestToStop)
{
    g_stock_root.remove("/go");
    g_stock_root.tool(kTool,
                      "touch \"$VELOMOND_ROOT/started\"; while [ ! -e \"$VELOMOND_ROOT/go\" ]; do sleep 0.02; done\n");
    std::thread first([] {
        T_SMART_READING got;
        EXPECT_EQ(smartctl_read("sda", &got), -EINVAL);
    });
    while (g_stock_root.read("/started").empty() && !std::filesystem::exists(g_stock_root.real("/started")))
        std::this_thread::yield();
    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop);
    T_SMART_READING got;
    EXPECT_EQ(smartctl_read("sda", &got), -EINTR);
    platform_interrupt_on(nullptr);
    g_stock_root.write("/go", "");
    first.join();
}

TEST(BlockDevices, KnowsADiskByItsName)
{
    for (const char *name : {"sda", "sdaa", "nvme0n1", "vda", "mmcblk0", "hda"})
        EXPECT_TRUE(block_name_is_disk(name)) << name;
    for (const char *name : {"loop0", "ram1", "zram0", "dm-3", "md0", "md_d1", "md127", "sr0"})
        EXPECT_FALSE(block_name_is_disk(name)) << name;
}

TEST(Disks, AreListedBySlotWithTheStateLastToldAndNotAskedForIt)
{
    g_stock_root.remove("/sys/block");
    t_storage_disk_list list;
    t_storage_enclosure_info host;
    EXPECT_NE(PAL_storage_get_disk_list({}, {}, list), 0U);
    for (const char *name : {"sda", "nvme0n1", "sdb", "sdc", "loop0"})
        g_stock_root.write(std::string("/sys/block/") + name + "/size", "1000\n");
    g_stock_root.write("/sys/block/sdc/size", "0\n");
    g_stock_root.write("/sys/block/nvme0c0n1/size", "1000\n");
    g_stock_root.write("/sys/block/nvme0c0n1/hidden", "1\n");
    g_stock_root.write("/sys/block/sda/device/model", "GOOD \"DISK\"    \n");
    g_stock_root.write("/sys/block/sda/diskseq", "1\n");
    g_stock_root.write("/sys/block/sdb/device/state", "offline\n");
    g_stock_root.remove(kTool); // whoever runs it now fails

    EXPECT_EQ(PAL_storage_get_enclosure_list({}, {77}, host), 0U);
    EXPECT_EQ(host.enclosure_count, 1);
    EXPECT_EQ(host.disk_count, 3);
    EXPECT_NE(PAL_storage_get_disk_list({}, {1}, list), 0U);
    ASSERT_EQ(PAL_storage_get_disk_list({}, {0}, list), 0U);
    ASSERT_EQ(list.disks.size(), 3U);
    EXPECT_EQ(list.disks[0].name, "disk_01");
    EXPECT_EQ(list.disks[1].name, "disk_02");
    EXPECT_EQ(list.disks[1].label, "GOOD \"DISK\" (/dev/sda)");
    EXPECT_FALSE(list.disks[1].presence.empty());
    EXPECT_EQ(list.disks[1].status, 0);
    EXPECT_LT(list.disks[2].status, 0);

    /* Slot 2 fails; slot 3, which is also number 0, tells no hours. */
    g_stock_root.tool(kTool, "case \"$6\" in /dev/sda) echo '" +
                                 document("ATA", R"("smart_status":{"passed":false},"power_on_time":{"hours":5})") +
                                 "'; exit 8;; *) echo '" + document("SCSI", R"("smart_status":{"passed":true})") +
                                 "';; esac\n");
    t_storage_smart_info smart = {7, 7};
    EXPECT_NE(PAL_storage_get_disk_smart_info({}, {0}, smart), 0U);
    EXPECT_NE(PAL_storage_get_disk_smart_info({}, {3}, smart), 0U);
    EXPECT_NE(PAL_storage_get_disk_smart_info({}, {4}, smart), 0U);
    EXPECT_NE(PAL_storage_get_disk_smart_info({}, {-1}, smart), 0U);
    EXPECT_EQ(smart.power_on_hours, 7);
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {2}, smart), 0U);
    EXPECT_EQ(smart.alert, 1);
    EXPECT_EQ(smart.power_on_hours, 5);
    ASSERT_EQ(PAL_storage_get_disk_list({}, {0}, list), 0U);
    EXPECT_EQ(list.disks[1].status, 2);
    g_stock_root.write("/sys/block/sda/diskseq", "2\n"); // another disk in its place
    ASSERT_EQ(PAL_storage_get_disk_list({}, {0}, list), 0U);
    EXPECT_EQ(list.disks[1].status, 0);
}

} // namespace
