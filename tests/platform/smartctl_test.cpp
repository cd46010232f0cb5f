#include "platform/stock/smartctl.h"

#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <thread>

#include "platform/interrupt.h"
#include "platform/pal.h"
#include "platform/stock_root.h"

namespace {

constexpr const char *kTool = "/usr/sbin/smartctl";

std::string document(const std::string &protocol, const char *rest)
{
    return R"({"smartctl":{"exit_status":0},"device":{"protocol":")" + protocol + "\"}," + rest + "}";
}

const std::string kAta = document(
    "ATA",
    R"("smart_status":{"passed":true},"ata_smart_attributes":{"table":[{"id":9,"raw":{"value":987654}}]},"power_on_time":{"hours":20001,"minutes":12})");

TEST(SmartParse, TakesVerdictAndHoursOrNothing)
{
    const struct {
        std::string text;
        int result;
        int passed;                   // -1 for not told
        int hours;                    // -1 for not told
    } cases[] = {{kAta, 0, 1, 20001}, // not the raw attribute
                 {document("ATA", R"("smart_status":{"passed":false})"), 0, 0, -1},
                 {document("SCSI", R"("smart_status":{"passed":false},"power_on_time":{"hours":7})"), 0, 0, 7},
                 {document("NVMe", R"("nvme_smart_health_information_log":{"power_on_hours":42})"), 0, -1, 42},
                 {document("NVMe", R"("nvme_smart_health_information_log":{"power_on_hours":18446744073709551615})"), 0,
                  -1, INT_MAX},
                 {document("ATA", R"("smart_status":["passed"],"power_on_time":{"hours":"20001"})"), 0, -1, -1},
                 {document("ATA", R"("power_on_time":{"hours":-5})"), 0, -1, -1},
                 {document("Tape", R"("smart_status":{"passed":true})"), -EINVAL, -1, -1},
                 {R"({"smart_status":{"passed":true}})", -EINVAL, -1, -1},
                 {kAta.substr(0, kAta.size() - 1), -EINVAL, -1, -1},
                 {kAta + "]", -EINVAL, -1, -1},
                 {std::string(100000, '['), -EINVAL, -1, -1},
                 {"", -EINVAL, -1, -1}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.text.substr(0, 200));
        T_SMART_READING got;
        EXPECT_EQ(smart_parse(one.text, &got), one.result);
        EXPECT_EQ(got.passed.has_value() ? static_cast<int>(*got.passed) : -1, one.passed);
        EXPECT_EQ(got.power_on_hours.value_or(-1), one.hours);
    }
}

TEST(SmartRead, AsksWithoutWakingAndTakesWhatComes)
{
    for (int status = 0; status < 256; ++status)
        EXPECT_EQ(smart_has_data(status), status % 4 == 0) << status;
    EXPECT_FALSE(smart_has_data(256 + 4)); // ended by a signal

    T_SMART_READING got;
    g_stock_root.remove(kTool);
    EXPECT_EQ(smartctl_read("sda", &got), -ENOENT);
    g_stock_root.tool(kTool, "exec head -c 10000000 /dev/zero\n");
    EXPECT_EQ(smartctl_read("sda", &got), -EFBIG);
    g_stock_root.tool(kTool, "echo '" + kAta + "'; exit 2\n"); // asleep
    EXPECT_EQ(smartctl_read("sda", &got), -EAGAIN);
    EXPECT_FALSE(got.power_on_hours.has_value());
    g_stock_root.tool(kTool, "echo '" + kAta + "'; exit 84\n");
    EXPECT_EQ(smartctl_read("sda", &got), 0);
    EXPECT_EQ(got.power_on_hours, 20001);
    EXPECT_TRUE(got.attribute_low);
}

TEST(SmartRead, OneDiskHasOneChildAtATimeAndTheWaitForItEndsWithARequestToStop)
{
    g_stock_root.remove("/busy");
    g_stock_root.tool(kTool, "mkdir $VELOMOND_ROOT/busy || exit 1\nsleep 0.3\nrmdir $VELOMOND_ROOT/busy\necho '" +
                                 kAta + "'\n");
    const auto ask = [](int expected) {
        T_SMART_READING got;
        EXPECT_EQ(smartctl_read("sda", &got), expected);
    };
    std::thread first(ask, 0), second(ask, 0);
    while (!std::filesystem::exists(g_stock_root.real("/busy")))
        std::this_thread::yield();
    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop);
    ask(-EINTR);
    platform_interrupt_on(nullptr);
    first.join();
    second.join();
}

TEST(Disks, AreListedBySlotWithTheStateLastToldAndNotAskedForIt)
{
    g_stock_root.remove("/sys/block");
    t_storage_disk_list list;
    t_storage_enclosure_info host;
    EXPECT_NE(PAL_storage_get_disk_list({}, {}, list), 0U);
    for (const char *name :
         {"sda", "nvme0n1", "sdb", "nvme0c0n1", "loop0", "ram1", "zram0", "dm-3", "md0", "md_d1", "sr0"})
        g_stock_root.write(std::string("/sys/block/") + name + "/size", "1000\n");
    g_stock_root.write("/sys/block/sdc/size", "0\n");
    g_stock_root.write("/sys/block/nvme0c0n1/hidden", "1\n");
    g_stock_root.write("/sys/block/sda/device/model", "GOOD \"DISK\"    \n");
    g_stock_root.write("/sys/block/sda/diskseq", "1\n");
    g_stock_root.write("/sys/block/sdb/device/state", "offline\n");
    g_stock_root.remove(kTool); // whoever runs it now fails
    const auto status_of = [&list](size_t index) {
        EXPECT_EQ(PAL_storage_get_disk_list({}, {0}, list), 0U);
        return list.disks.at(index).status;
    };

    EXPECT_EQ(PAL_storage_get_enclosure_list({}, {77}, host), 0U);
    EXPECT_EQ(host.disk_count, 3);
    EXPECT_NE(PAL_storage_get_disk_list({}, {1}, list), 0U);
    EXPECT_EQ(status_of(1), 0);
    EXPECT_LT(status_of(2), 0);
    EXPECT_EQ(list.disks.size(), 3U); // none of what is no disk
    EXPECT_EQ(list.disks[1].name, "disk_02");
    EXPECT_EQ(list.disks[1].label, "GOOD \"DISK\" (/dev/sda)");
    EXPECT_FALSE(list.disks[1].presence.empty());

    /* Slot 2 fails; slot 3, which is also number 0, tells no hours. */
    g_stock_root.tool(kTool, "case \"$6\" in /dev/sda) echo '" +
                                 document("ATA", R"("smart_status":{"passed":false},"power_on_time":{"hours":5})") +
                                 "'; exit 8;; *) echo '" + document("SCSI", R"("smart_status":{"passed":true})") +
                                 "';; esac\n");
    t_storage_smart_info smart = {7, 7};
    for (const int slot : {0, 3, 4, -1})
        EXPECT_NE(PAL_storage_get_disk_smart_info({}, {slot}, smart), 0U) << slot;
    EXPECT_EQ(smart.power_on_hours, 7);
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {2}, smart), 0U);
    EXPECT_EQ(smart.alert, 1);
    EXPECT_EQ(smart.power_on_hours, 5);
    EXPECT_EQ(status_of(1), 2);
    g_stock_root.write("/sys/block/sda/diskseq", "2\n"); // another disk in its place
    EXPECT_EQ(status_of(1), 0);
}

} // namespace
