#include <gtest/gtest.h>

#include "platform/interrupt.h"
#include "platform/pal.h"
#include "platform/stock/storage/block_devices.h"
#include "platform/stock_root.h"

namespace {

constexpr const char *kTool = "/usr/sbin/smartctl";
constexpr const char *kAsked = "/asked";
const std::string kPci = "/sys/devices/pci0000:00/0000:00:";

/* A block device in sysfs: its folder in that of its hardware, and links. */
class TSysfs {
public:
    TSysfs()
    {
        g_stock_root.remove("/sys");
        g_stock_root.folder("/sys/block");
    }
    static void add(const std::string &name, const std::string &hardware, const std::string &serial)
    {
        const std::string folder = hardware + "/block/" + name;
        g_stock_root.write(folder + "/size", "1000\n");
        g_stock_root.write(folder + "/removable", "0\n");
        g_stock_root.link("../..", folder + "/device");
        if (!serial.empty())
            g_stock_root.write(hardware + "/wwid", serial + "\n");
        g_stock_root.link(".." + folder.substr(4), "/sys/block/" + name);
    }
    static void remove(const std::string &name, const std::string &hardware)
    {
        g_stock_root.remove("/sys/block/" + name);
        g_stock_root.remove(hardware);
    }
};

std::string sata(int port, int host)
{
    const std::string number = std::to_string(host);
    return kPci + "1f.2/ata" + std::to_string(port) + "/host" + number + "/target" + number + ":0:0/" + number +
           ":0:0:0";
}

/* The node of each entry of the disk list, under its name. */
std::string names()
{
    t_storage_disk_list list;
    EXPECT_EQ(PAL_storage_get_disk_list({}, {}, list), 0U);
    std::string text;
    for (const t_storage_disk &disk : list.disks)
        text += disk.name.substr(5) + disk.label.substr(disk.label.rfind('/')) + " ";
    return text;
}

int status_of(const std::string &name, bool in_a_check = false)
{
    t_storage_enclosure_info host;
    EXPECT_EQ(in_a_check ? PAL_storage_get_enclosure_list({}, {}, host) : 0U, 0U);
    t_storage_disk_list list;
    EXPECT_EQ(PAL_storage_get_disk_list({}, {0}, list), 0U);
    for (const t_storage_disk &disk : list.disks) {
        if (disk.name == name)
            return disk.status;
    }
    return 99;
}

std::vector<std::string> asked()
{
    std::ifstream file(g_stock_root.real(kAsked));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    g_stock_root.remove(kAsked);
    return lines;
}

/* smartctl prints the file of the disk, and records its arguments. */
void make_tool()
{
    g_stock_root.tool(kTool, "echo \"$3 $6\" >>$VELOMOND_ROOT/asked\n"
                             "cat $VELOMOND_ROOT/answers$6 && exit 0\nexit 1\n");
    (void)asked();
}
void answer(const std::string &disk, const std::string &rest)
{
    g_stock_root.write("/answers/dev/" + disk, R"({"device":{"protocol":"ATA"},)" + rest + "}");
}

TEST(BlockDevices, AreDisksByTheirLinkAndPlaceNotByTheirName)
{
    TSysfs sysfs;
    EXPECT_TRUE(names().empty());
    TSysfs::add("zda", sata(10, 0), "");
    for (const char *name : {"zd0", "nbd0", "drbd0", "bcache0", "nullb0", "loop0", "ram1", "zram0", "dm-3", "md0"}) {
        g_stock_root.write("/sys/devices/virtual/block/" + std::string(name) + "/size", "1000\n");
        g_stock_root.link("../devices/virtual/block/" + std::string(name), "/sys/block/" + std::string(name));
    }
    TSysfs::add("scsidbg", "/sys/devices/virtual/host9/9:0:0:0", "");
    TSysfs::add("rbd0", "/sys/devices/rbd/0", "");
    TSysfs::add("mtdblock0", "/sys/devices/platform/nor/mtd/mtd0", "");
    TSysfs::add("fd0", "/sys/devices/platform/floppy.0", "");
    g_stock_root.write("/sys/block/fd0/removable", "1\n");
    for (const char *name : {"mmcblk0", "mmcblk0boot0", "mmcblk0rpmb"})
        TSysfs::add(name, "/sys/devices/platform/emmc/mmc_host/mmc0/mmc0:0001", "");
    for (const char *name : {"sde", "sdf"}) {
        TSysfs::add(name, sata(name[2] - 'a', 1), "");
        g_stock_root.write(std::string("/sys/block/") + name + "/size", "0\n");
    }
    g_stock_root.write(sata('f' - 'a', 1) + "/state", "transport-offline\n"); // given up, and without a size
    const std::string controller = kPci + "05.0/nvme/nvme3",
                      subsystem = "/sys/devices/virtual/nvme-subsystem/nvme-subsys0";
    g_stock_root.write(controller + "/state", "live\n");
    TSysfs::add("nvme0c3n1", controller, "");
    g_stock_root.write(controller + "/block/nvme0c3n1/hidden", "1\n");
    TSysfs::add("nvme0n1", subsystem, "");
    g_stock_root.link("../../../.." + controller.substr(4), subsystem + "/nvme3");
    const std::string expander = kPci + "08.0/host4/port-4:0/expander-4:0",
                      end = expander + "/port-4:0:7/end_device-4:0:7";
    g_stock_root.write(expander + "/sas_device/expander-4:0/sas_address", "0x5001\n");
    g_stock_root.write(end + "/sas_device/end_device-4:0:7/phy_identifier", "3\n");
    TSysfs::add("sdg", end + "/target4:0:9/4:0:9:0", "");

    std::vector<TBlockDevice> devices;
    ASSERT_EQ(block_devices(&devices), 0);
    std::string found;
    for (const TBlockDevice &device : devices)
        found += device.name + " " + device.port + "\n";
    EXPECT_EQ(found, "nvme0n1 /devices/pci0000:00/0000:00:05.0/n1\n"
                     "sdg /devices/pci0000:00/0000:00:08.0/host4/0x5001/phy3:0\n"
                     "sdf /devices/pci0000:00/0000:00:1f.2/ata5/0:0:0\n"
                     "zda /devices/pci0000:00/0000:00:1f.2/ata10/0:0:0\n"
                     "mmcblk0 /devices/platform/emmc/mmc_host/mmc0\n");
}

TEST(BlockPort, OmitsNumbersThatCountUpAtEachPlug)
{
    for (const auto &[path, port] : std::map<std::string, std::string>{
             {"/p/ata2/host1/target1:0:0/1:0:0:0", "/p/ata2/0:0:0"},
             {"/p/usb1/1-2/1-2.4:1.0/host6/target6:0:0/6:0:0:1", "/p/usb1/1-2/1-2.4:1.0/0:0:1"},
             {"/p/virtio3/host2/target2:0:4/2:0:4:0", "/p/0:4:0"},
             {"/p/virtio3", "/p"},
             {"/p/host0/target0:2:7/0:2:7:0", "/p/host0/0:2:7:0"}, // a card's own hosts are kept
             {"/p/nvme/nvme0", "/p"},
             {"/p/mmc_host/mmc0/mmc0:59b4", "/p/mmc_host/mmc0"},
             {"/block/sda/device", "/block/sda/device"},
             {"", ""}})
        EXPECT_EQ(block_port(path), port);
}

TEST(BlockStatus, PutsTheTransportBeforeTheDisksOwnHealth)
{
    const TSmartReading unknown, good = {true, 1, false}, worn = {true, 1, true}, bad = {false, 1, true};
    for (const char *state : {"", "running", "live", "blocked"}) {
        EXPECT_EQ(block_status(state, unknown), 0);
        EXPECT_EQ(block_status(state, good), 0);
        EXPECT_EQ(block_status(state, worn), 1);
        EXPECT_EQ(block_status(state, bad), 2);
    }
    for (const char *state : {"offline", "transport-offline", "dead"})
        EXPECT_EQ(block_status(state, good), 2) << state;
    EXPECT_LT(block_status("deleting", bad), 0);
}

/* One test, as the numbers of ports and the readings of disks live as long as the process. */
TEST(Disks, AreNumberedByPortAndOnlyReadByTheCheck)
{
    TSysfs sysfs;
    make_tool();
    for (const int port : {11, 12, 13, 14})
        TSysfs::add(std::string("sd") + static_cast<char>('a' + port - 11), sata(port, port),
                    "naa.500" + std::to_string(port));
    g_stock_root.write(sata(11, 11) + "/model", "GOOD \"DISK\"    \n");
    const std::string first = names().substr(0, 2);
    const int base = std::stoi(first, nullptr, 16); // earlier tests may have listed other ports
    const auto name = [base](int place) {
        char text[32];
        snprintf(text, sizeof(text), "disk_%02x", static_cast<unsigned>(base + place));
        return std::string(text);
    };

    /* The flag's listing queries no disk, even after that of a check; the check's does. */
    answer("sda", R"("smart_status":{"passed":false},"power_on_time":{"hours":30000})");
    answer("sdb", R"("smart_status":{"passed":true})");
    answer("sdd", R"("x":0)");
    EXPECT_EQ(status_of(name(0)), 0);
    EXPECT_TRUE(asked().empty());
    EXPECT_EQ(status_of(name(0), true), 2);
    EXPECT_EQ(asked(),
              (std::vector<std::string>{"never /dev/sda", "never /dev/sdb", "never /dev/sdc", "never /dev/sdd"}));
    EXPECT_EQ(status_of(name(1)), 0);

    /* sdb reports no hours, sdc cannot be read, sdd has no SMART; number 0 is no disk. */
    t_storage_enclosure_info host;
    EXPECT_EQ(PAL_storage_get_enclosure_list({}, {77}, host), 0U);
    EXPECT_EQ(host.disk_count, base + 4);
    t_storage_smart_info smart = {7, 7};
    for (const int number : {0, -1, base + 3, base + 4, 100000})
        EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {number}, smart), 0U);
    EXPECT_EQ(smart.alert, 7);
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {base}, smart), 0U);
    EXPECT_EQ(smart.alert, 1);
    EXPECT_EQ(smart.power_on_hours, 30000);
    EXPECT_NE(PAL_storage_get_disk_smart_info({}, {base + 2}, smart), 0U);
    EXPECT_EQ(PAL_storage_get_disk_smart_info({}, {base + 1}, smart), 0U);
    EXPECT_EQ(smart.alert, 0);
    EXPECT_EQ(smart.power_on_hours, 30000);
    EXPECT_TRUE(asked().empty());

    /* A removed disk renumbers no other. Another disk in its port has its number and none of its readings; the disk
     * itself keeps them. */
    TSysfs::remove("sda", sata(11, 11));
    EXPECT_EQ(names().substr(0, 8), name(1).substr(5) + "/sdb) ");
    TSysfs::add("sdaa", sata(11, 99), "naa.new");
    EXPECT_EQ(status_of(name(0)), 0);
    TSysfs::add("sdx", sata(9, 50), "naa.50011"); // a port that comes before the others
    EXPECT_EQ(status_of(name(4)), 2);
    EXPECT_EQ(names(), name(0).substr(5) + "/sdaa) " + name(1).substr(5) + "/sdb) " + name(2).substr(5) + "/sdc) " +
                           name(3).substr(5) + "/sdd) " + name(4).substr(5) + "/sdx) ");
    t_storage_disk_list list;
    EXPECT_NE(PAL_storage_get_disk_list({}, {1}, list), 0U);

    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop); // a listing with half of the states would be a finding
    EXPECT_EQ(PAL_storage_get_enclosure_list({}, {}, host), 0U);
    EXPECT_EQ(PAL_storage_get_disk_list({}, {}, list), PAL_CANCELLED);
    platform_interrupt_on(nullptr);

    /* One that was given up is an error, and asked no more. */
    g_stock_root.write(sata(12, 12) + "/state", "offline\n");
    EXPECT_EQ(status_of(name(1), true), 2);
    EXPECT_EQ(asked(), std::vector<std::string>{"never /dev/sdaa"});
    EXPECT_NE(PAL_storage_get_disk_smart_info({}, {base + 1}, smart), 0U);
    g_stock_root.remove("/sys/block");
    EXPECT_NE(PAL_storage_get_disk_list({}, {}, list), 0U);
}

} // namespace
