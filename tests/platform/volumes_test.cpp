#include "platform/stock/storage/volumes.h"

#include <array>
#include <cerrno>
#include <gtest/gtest.h>

#include "platform/pal.h"
#include "platform/stock/storage/md_array.h"
#include "platform/stock_root.h"

namespace {

TEST(Volumes, AreTheSectionsWithAMountPoint)
{
    std::string found;
    for (const auto &[id, one] : volumes_of(
             ini_parse_text("[VOL_10]\nmountPoint=/b//\nvolName=B\n[VOL_2]\nmountPoint=//\n[VOL_3]\nvolName=none\n"
                            "[VOL_04]\nmountPoint=/x\n[VOL_]\nmountPoint=/x\n[VOL_-1]\nmountPoint=/x\n"
                            "[VOL_0]\nmountPoint=/z\n[XVOL]\nmountPoint=/x\n"
                            "[VOL_99999999999]\nmountPoint=/x\n[VOL_5]\nmountPoint=relative\n")))
        found += std::to_string(id == one.id ? id : -1) + " " + one.mount_point + " " + one.name + "\n";
    EXPECT_EQ(found, "0 /z \n2 / \n10 /b B\n");
}

TEST(Volumes, SpaceIsInBytesAndNeverWraps)
{
    struct statvfs space = {};
    space.f_frsize = 4096;
    space.f_bsize = 1; // not the unit of the counts
    space.f_blocks = 1000;
    space.f_bfree = 300;
    space.f_bavail = 250;
    const t_volume_usage usage = volume_usage({7, "name", "/v"}, space);
    using TFigures = std::array<int64_t, 5>; // free space includes root's share
    EXPECT_EQ((TFigures{usage.volume_id, usage.size_bytes, usage.free_bytes, usage.used_bytes, usage.reserved_bytes}),
              (TFigures{7, 4096000, 1228800, 2867200, 204800}));

    space.f_blocks = space.f_bfree = UINT64_MAX / 2;
    space.f_bavail = UINT64_MAX; // of a file system that owes space
    EXPECT_EQ(volume_usage({}, space).free_bytes, INT64_MAX);
    EXPECT_EQ(volume_usage({}, space).reserved_bytes, 0);
}

TEST(Volumes, AMountIsFoundByItsExactPlace)
{
    const std::string text = "27 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
                             "40 27 8:1 / /share/a\\040b rw shared:5 master:1 - ext4 /dev/sda1 rw\n"
                             "41 27 9:1 / /share/top rw - ext4 /dev/md1 rw\n"
                             "44 27 8:2 / /share/b\\134c\\188\\1z2 rw - ext4 /dev/sdb1 rw\n"
                             "45 27 8:3 / /share/c\rd rw - ext4 /dev/sdc1 rw\n"
                             "42 41 0:50 /sub /share/top rw,relatime shared:7 - btrfs /dev/md\\0542\\054 rw,ssd\n"
                             "43 27";
    for (const auto &[place, found] : {std::pair("/share", " "),
                                       {"/share/c", " "},
                                       {"/share/a b", "8:1 /dev/sda1"},
                                       {"/share/b\\c\\188\\1z2", "8:2 /dev/sdb1"},
                                       {"/share/top", "0:50 /dev/md,2,"}}) { // the upper of two
        TMount mount;
        EXPECT_EQ(mount_find(text, place, &mount), *found != ' ');
        EXPECT_EQ(mount.device + " " + mount.source, found);
    }
}

TEST(MdStatus, IsReadyFailedOrRebuilding)
{
    using TTexts = std::array<const char *, 3>; // of an array: its state, its present action, how many disks it misses
    const std::pair<int, std::vector<TTexts>> cases[] = {
        {0, {{"clean", "", ""}, {"active", "check", "0"}, {"active", "repair", "0"}}},
        {1, {{"clean", "recover", "1"}, {"active", "resync", "0"}, {"clean", "reshape", "0"}}},
        {-2, {{"active", "check", "1"}, {"broken", "", ""}, {"inactive", "", ""}, {"clear", "", ""}}}};
    for (const auto &[status, arrays] : cases) {
        for (const auto &[state, action, missing] : arrays)
            EXPECT_EQ(md_status(state, action, missing), status) << state << action;
    }
    for (const auto &[a, b, worse] : {std::array{0, 1, 1}, {1, -2, -2}, {0, -2, -2}, {0, 0, 0}, {-2, -1, -2}}) {
        EXPECT_EQ(volume_worse(a, b), worse);
        EXPECT_EQ(volume_worse(b, a), worse);
    }
}

class VolumeCalls : public testing::Test {
protected:
    VolumeCalls()
    {
        for (const char *path : {"/sys", "/proc", "/share", "/tarn"})
            g_stock_root.remove(path);
        g_stock_root.write("/tarn/etc/volume.conf",
                           "[VOL_1]\nvolName=One\nmountPoint=/share/one\n"
                           "[VOL_2]\nmountPoint=/share/two\n[VOL_3]\nmountPoint=/share/none\n");
        g_stock_root.folder("/share/one");
        g_stock_root.folder("/share/two");
    }
    /* Or the error. */
    int status_of(int32_t id)
    {
        t_storage_disk_vol_info in, info;
        in.target_vol_id = id;
        testing::internal::CaptureStderr();
        const uint32_t result = PAL_storage_get_volume_info({}, in, info);
        m_log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(info.target_vol_id, result == 0 ? id : 0);
        EXPECT_EQ(info.free_bytes.empty(), result != 0 || info.status == -1); // unknown
        return result == 0 ? info.status : static_cast<int>(result);
    }
    std::string m_log;
};

TEST_F(VolumeCalls, MeasureMountedVolumesAndOmitTheOthers)
{
    t_volume_info info;
    ASSERT_EQ(PAL_resmon_get_disk_usage({}, {}, info), 0U);
    ASSERT_EQ(info.usage.size(), 2U);
    EXPECT_EQ(info.usage[0].texts, (std::vector<std::string>{"One", "/share/one"}));
    EXPECT_GT(info.usage[0].size_bytes, 0);
    EXPECT_EQ(status_of(1), 0);
    EXPECT_EQ(status_of(3), -1);
    EXPECT_EQ(status_of(4), ENODEV);

    g_stock_root.remove("/tarn/etc/volume.conf");
    EXPECT_EQ(status_of(1), ENOENT);
    EXPECT_EQ(m_log, "/tarn/etc/volume.conf cannot be used: No such file or directory\n");
    EXPECT_EQ(PAL_resmon_get_disk_usage({}, {}, info), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(info.usage.size(), 2U);
}

TEST_F(VolumeCalls, TakeTheStateOfTheArrayUnderPartitionsAndMappersOrOfThePool)
{
    g_stock_root.write("/proc/self/mountinfo", "1 0 259:1 / /share/one rw - ext4 /dev/md1p1 rw\n"
                                               "2 0 0:50 / /share/two rw - btrfs /dev/mapper/pool rw\n");
    const std::string md1 = "/sys/devices/virtual/block/md1";
    g_stock_root.write(md1 + "/md1p1/partition", "1\n");
    g_stock_root.write(md1 + "/md/array_state", "clean\n");
    g_stock_root.write(md1 + "/md/degraded", "1\n");
    g_stock_root.link("../../devices/virtual/block/md1/md1p1", "/sys/dev/block/259:1");
    const std::string dm0 = "/sys/devices/virtual/block/dm-0";
    g_stock_root.link("../../md1", dm0 + "/slaves/md1");
    g_stock_root.link("../../devices/virtual/block/dm-0", "/sys/class/block/dm-0");
    g_stock_root.link("../dm-0", "/dev/mapper/pool");
    EXPECT_EQ(status_of(1), -2);
    EXPECT_EQ(status_of(2), -2);
    g_stock_root.write(md1 + "/md/sync_action", "recover\n");
    EXPECT_EQ(status_of(1), 1);
    EXPECT_EQ(status_of(2), 1);
    g_stock_root.write("/proc/self/mountinfo", "2 0 0:50 / /share/two rw - btrfs /dev/dm-0 rw\n"); // no link
    EXPECT_EQ(status_of(2), 1);

    g_stock_root.write("/proc/self/mountinfo", "1 0 0:60 / /share/one rw - zfs tank/a/b rw\n"
                                               "2 0 0:61 / /share/two rw - zfs old rw\n");
    for (const auto &[text, status] :
         {std::pair{"ONLINE\n", 0}, {"DEGRADED\n", -2}, {"FAULTED\n", -2}, {"SUSPENDED\n", -2}, {"", -2}}) {
        g_stock_root.write("/proc/spl/kstat/zfs/tank/state", text);
        EXPECT_EQ(status_of(1), status) << text;
        EXPECT_EQ(status_of(2), 0); // no such file
    }
}

TEST_F(VolumeCalls, ReportAMissingVolumeOncePerChange)
{
    const auto logged = [this](int32_t id) { return status_of(id), m_log; };
    (void)logged(3); // an earlier test may have caused it
    EXPECT_EQ(logged(3), "");
    g_stock_root.folder("/share/none");
    EXPECT_EQ(logged(3), "");
    g_stock_root.remove("/share/none");
    EXPECT_EQ(logged(3), "volume 3 at /share/none is not mounted\n");
    EXPECT_EQ(logged(3), "");
    g_stock_root.write("/proc/self/mountinfo", "3 0 8:1 / /share/none rw - ext4 /dev/sda1 rw\n");
    EXPECT_EQ(logged(3), "volume 3 at /share/none cannot be measured: No such file or directory\n");
    EXPECT_EQ(status_of(3), ENOENT);
    EXPECT_EQ(logged(5), "no volume 5 in /tarn/etc/volume.conf\n");
    EXPECT_EQ(logged(5), "");
}

} // namespace
