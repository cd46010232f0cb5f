#include <cerrno>
#include <gtest/gtest.h>
#include <thread>

#include "platform/interrupt.h"
#include "platform/pal.h"
#include "platform/stock/storage/block_devices.h"
#include "platform/stock_root.h"

namespace {

using TTexts = std::map<std::string, std::string>;
const std::string kPci = "/sys/devices/pci0000:00/0000:00:";

/* A block device in sysfs: its folder in that of its hardware, attributes below that, and links. */
void add(const std::string &name, const std::string &hardware, const TTexts &attributes = {})
{
    const std::string folder = hardware + "/block/" + name;
    g_stock_root.write(folder + "/size", "1000\n");
    g_stock_root.write(folder + "/removable", "0\n");
    g_stock_root.link("../..", folder + "/device");
    for (const auto &[path, text] : attributes)
        g_stock_root.write(hardware + path, text + "\n");
    g_stock_root.link(".." + folder.substr(4), "/sys/block/" + name);
}

std::string sata(int port, int host)
{
    const std::string number = std::to_string(host);
    return kPci + "1f.2/ata" + std::to_string(port) + "/host" + number + "/target" + number + ":0:0/" + number +
           ":0:0:0";
}

/* Each entry of the disk list. */
std::string listed(bool in_a_check = false)
{
    t_storage_enclosure_info host;
    EXPECT_EQ(in_a_check ? PAL_storage_get_enclosure_list({}, {}, host) : 0U, 0U);
    t_storage_disk_list list;
    EXPECT_EQ(PAL_storage_get_disk_list({}, {0}, list), 0U);
    std::string text;
    for (const t_storage_disk &disk : list.disks)
        text += disk.name + " " + disk.label + " " + std::to_string(disk.status) + "\n";
    return text;
}

TEST(BlockDevices, AreDisksByTheirLinkAndPlaceNotByTheirName)
{
    g_stock_root.remove("/sys");
    g_stock_root.folder("/sys/block");
    EXPECT_EQ(listed(), "");
    for (const char *name : {"zda", "zdb"}) // what the kernel puts into one place
        add(name, sata(10, 0), {{"/serial", "shared"}});
    for (const char *name : {"zd0", "nbd0", "drbd0", "bcache0", "nullb0", "loop0", "ram1", "zram0", "dm-3", "md0"}) {
        g_stock_root.write("/sys/devices/virtual/block/" + std::string(name) + "/size", "1000\n");
        g_stock_root.link("../devices/virtual/block/" + std::string(name), "/sys/block/" + std::string(name));
    }
    add("scsidbg", "/sys/devices/virtual/host9/9:0:0:0");
    add("rbd0", "/sys/devices/rbd/0");
    add("mtdblock0", "/sys/devices/platform/nor/mtd/mtd0");
    add("fd0", "/sys/devices/platform/floppy.0", {{"/block/fd0/removable", "1"}});
    for (const char *name : {"mmcblk0", "mmcblk0boot0", "mmcblk0rpmb"})
        add(name, "/sys/devices/axi/emmc/mmc_host/mmc0/mmc0:0001", {{"/name", "CARD"}, {"/cid", "cid"}});
    add("sde", sata(4, 1), {{"/block/sde/size", "0"}});
    add("sdf", sata(5, 1), // given up, and without a size
        {{"/block/sdf/size", "0"},
         {"/block/sdf/diskseq", "7"},
         {"/state", "transport-offline"},
         {"/power/runtime_status", "suspended"}});
    const std::string subsystem = "/sys/devices/virtual/nvme-subsystem/nvme-subsys0";
    add("nvme0n1", subsystem, {{"/block/nvme0n1/wwid", "eui"}});
    for (const auto &[name, state] : TTexts{{"/nvme3", "dead"}, {"/nvme4", "live"}, {"/nvme5", "dead"}}) {
        const std::string controller = sata(10, 0) + "/nvme" + name;
        add(name.substr(1) + "n1", controller, {{"/state", state}, {"/block" + name + "n1/hidden", "1"}});
        g_stock_root.link("../../../.." + controller.substr(4), subsystem + name);
    }
    const std::string expander = kPci + "10.0/host4/port-4:0/expander-4:0",
                      end = expander + "/port-4:0:7/end_device-4:0:7";
    g_stock_root.write(expander + "/sas_device/expander-4:0/sas_address", "0x5001\n");
    g_stock_root.write(end + "/sas_device/end_device-4:0:7/phy_identifier", "3\n");
    add("sdg", end + "/target4:0:9/4:0:9:0", {{"/vpd_pg80", "page"}});

    std::vector<TBlockDevice> devices;
    ASSERT_EQ(block_devices(&devices), 0);
    std::string found;
    for (const TBlockDevice &device : devices)
        found += device.name + " " + device.port + " " + device.model + " " + device.identity + " " + device.state +
                 (device.suspended ? "suspended\n" : "\n");
    EXPECT_EQ(found, "sdg /devices/pci0000:00/0000:00:10.0/host4/0x5001/phy3:0 Disk page \n"
                     "sdf /devices/pci0000:00/0000:00:1f.2/ata5/0:0:0 Disk "
                     "/devices/pci0000:00/0000:00:1f.2/ata5/0:0:0\n7\n transport-offlinesuspended\n"
                     "zda /devices/pci0000:00/0000:00:1f.2/ata10/0:0:0 Disk shared \n"
                     "nvme0n1 /devices/pci0000:00/0000:00:1f.2/ata10/0:0:0/n1 Disk eui live\n"
                     "zdb /devices/pci0000:00/0000:00:1f.2/ata10/0:0:0/zdb Disk shared\n"
                     "/devices/pci0000:00/0000:00:1f.2/ata10/0:0:0/zdb \n"
                     "mmcblk0 /devices/axi/emmc/mmc_host/mmc0 CARD cid \n");
}

TEST(BlockPort, OmitsNumbersThatCountUpAtEachPlug)
{
    for (const auto &[path, port] :
         TTexts{{"/p/usb1/1-2/1-2.4:1.0/host6/target6:0:0/6:0:0:1", "/p/usb1/1-2/1-2.4:1.0/0:0:1"},
                {"/p/virtio3/host2/target2:0:4/2:0:4:0", "/p/0:4:0"},
                {"/p/virtio3", "/p"},
                {"/p/host0/target0:2:7/0:2:7:0", "/p/host0/0:2:7:0"}, // a card's own hosts are kept
                {"/block/sda/device", "/block/sda/device"},
                {"/ata1/host/ata2/hostx/12/host6/1-2x:1.0/host6/x1-2:1.0/host6/1:1-0/host6",
                 "/ata1/host/ata2/hostx/12/host6/1-2x:1.0/host6/x1-2:1.0/host6/1:1-0/host6"},
                {"", ""}})
        EXPECT_EQ(block_port(path), port);
}

TEST(BlockStatus, PutsTheTransportBeforeTheDisksOwnHealth)
{
    const TSmartReading good = {true, 1, false}, worn = {true, 1, true}, bad = {false, 1, true};
    for (const char *state : {"cancel", "deleted", "deleting"})
        EXPECT_EQ(block_status(state, bad), -1) << state;
    for (const char *state : {"offline", "transport-offline", "dead"})
        EXPECT_EQ(block_status(state, good), 2) << state;
    EXPECT_EQ(block_status("running", good), 0);
    EXPECT_EQ(block_status("live", worn), 1);
    EXPECT_EQ(block_status("blocked", bad), 2);
}

/* One test, as the numbers of ports and the readings of disks live as long as the process. */
TEST(Disks, AreNumberedByPortAndOnlyReadByTheCheck)
{
    g_stock_root.remove("/sys");
    g_stock_root.tool("/usr/sbin/smartctl", "echo \"$3 $6\" >>$VELOMOND_ROOT/asked\ncat $VELOMOND_ROOT/answers$6\n");
    for (const int port : {11, 12, 13, 14})
        add(std::string("sd") + static_cast<char>('a' + port - 11), sata(port, port),
            {{"/wwid", "naa.500" + std::to_string(port)}});
    g_stock_root.write(sata(11, 11) + "/model", "GOOD \"DISK\"    \n");

    /* The flag's listing queries no disk, even after that of a check; the check's does. */
    for (const auto &[disk, answer] :
         TTexts{{"sda", R"("smart_status":{"passed":false},"power_on_time":{"hours":30000})"},
                {"sdb", R"("smart_status":{"passed":true})"},
                {"sdd", R"("x":0)"}})
        g_stock_root.write("/answers/dev/" + disk, R"({"device":{"protocol":"ATA"},)" + answer + "}");
    const std::string others = "disk_02 Disk (/dev/sdb) 0\ndisk_03 Disk (/dev/sdc) 0\ndisk_04 Disk (/dev/sdd) 0\n";
    std::thread([&] { EXPECT_EQ(listed(), "disk_01 GOOD \"DISK\" (/dev/sda) 0\n" + others); }).join(); // its first
    EXPECT_EQ(g_stock_root.read("/asked"), "");
    EXPECT_EQ(listed(true), "disk_01 GOOD \"DISK\" (/dev/sda) 2\n" + others);
    const std::string asked = "never /dev/sda\nnever /dev/sdb\nnever /dev/sdc\nnever /dev/sdd\n"; // -n and the device
    EXPECT_EQ(g_stock_root.read("/asked"), asked);
    EXPECT_EQ(listed(), "disk_01 GOOD \"DISK\" (/dev/sda) 2\n" + others);

    /* sdb reports no hours, sdc cannot be read, sdd has no SMART; number 0 is no disk. */
    t_storage_enclosure_info host;
    EXPECT_EQ(PAL_storage_get_enclosure_list({}, {77}, host), 0U);
    EXPECT_EQ(host.enclosure_count, 1);
    EXPECT_EQ(host.disk_count, 5);
    t_storage_smart_info smart;
    for (const int number : {0, -1, 4, 5, 100000})
        EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {number}, smart), 0U);
    EXPECT_EQ(smart.alert + smart.power_on_hours, 0);
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {1}, smart), 0U);
    EXPECT_EQ(smart.alert + smart.power_on_hours, 1 + 30000);
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {3}, smart), static_cast<uint32_t>(EIO));
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {2}, smart), 0U);
    EXPECT_EQ(smart.alert + smart.power_on_hours, 0 + 30000);
    EXPECT_EQ(g_stock_root.read("/asked"), asked);

    /* A removed disk renumbers no other. Another disk in its port has its number and none of its readings; the disk
     * itself keeps them. */
    g_stock_root.remove("/sys/block/sda");
    g_stock_root.remove(sata(11, 11));
    EXPECT_EQ(listed(), others);
    add("sdaa", sata(11, 99), {{"/wwid", "naa.new"}});
    add("sdx", sata(9, 50), {{"/wwid", "naa.50011"}}); // a port that comes before the others
    EXPECT_EQ(listed(), "disk_01 Disk (/dev/sdaa) 0\n" + others + "disk_05 Disk (/dev/sdx) 2\n");
    t_storage_disk_list list;
    EXPECT_EQ(PAL_storage_get_disk_list({}, {1}, list), static_cast<uint32_t>(ENODEV));

    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop); // a listing with half of the states would be a finding
    EXPECT_EQ(PAL_storage_get_enclosure_list({}, {}, host), 0U);
    EXPECT_EQ(PAL_storage_get_disk_list({}, {}, list), PAL_CANCELLED);
    platform_interrupt_on(nullptr);

    /* One that was given up is an error, and asked no more. */
    g_stock_root.write(sata(12, 12) + "/state", "offline\n");
    EXPECT_EQ(listed(true), "disk_01 Disk (/dev/sdaa) 0\ndisk_02 Disk (/dev/sdb) 2\ndisk_03 Disk (/dev/sdc) 0\n"
                            "disk_04 Disk (/dev/sdd) 0\ndisk_05 Disk (/dev/sdx) 2\n");
    EXPECT_EQ(g_stock_root.read("/asked"), asked + "never /dev/sdaa\n");
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {2}, smart), static_cast<uint32_t>(ENXIO));
    g_stock_root.remove("/sys/block");
    testing::internal::CaptureStderr();
    EXPECT_EQ(PAL_storage_get_disk_list({}, {}, list), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "the disks cannot be listed: No such file or directory\n");
}

} // namespace
