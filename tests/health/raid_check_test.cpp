#include "health/volume_check.h"

#include "common/debug_log.h"
#include "common/system_volume.h"
#include "fake_platform/fake_platform.h"

namespace {

class RaidCheck : public fake::TPlatformTest {
protected:
    RaidCheck()
    {
        g_system_volume_id = 9; // what the other checks hold is not looked at
        fake::state()->self_conf["OSTRAPRO_SYS_VOL"] = "2";
        fake::state()->enclosure.disk_count = 3;
    }

    /* The number of notices for a status of the array and the alert flags of its
     * disks; -1 is a disk whose flag cannot be had. */
    static size_t check(int status, const std::vector<int> &alerts)
    {
        fake::state()->volume_info = [status](int id, t_storage_disk_vol_info &out) {
            out.status = status;
            return id == 2 ? 0U : 0xbad0U + static_cast<uint32_t>(id);
        };
        fake::state()->smart = [alerts](int disk, t_storage_smart_info &out) {
            out.alert = alerts.at(static_cast<size_t>(disk));
            return out.alert < 0 ? 0x5aU : 0U;
        };
        fake::state()->nc_notify.clear();
        do_raid_check();
        return fake::state()->nc_notify.size();
    }
};

TEST_F(RaidCheck, WarnsOfABadArrayWhoseLastDiskPredictsItsFailure)
{
    EXPECT_EQ(check(0, {0, 0, 1}), 1U);
    EXPECT_EQ(fake::state()->nc_notify[0], "'$LOG_LEVEL_WARN'|'$LOG_TYPE_LOG_NOTIFY'|C001|001030|"
                                           "\"'Ostra Surveillance'\"|-|-|-|-|-|-|-|-|-|");
    EXPECT_EQ(fake::state()->enclosures_asked, std::vector<int>{2});
    EXPECT_EQ(check(-3, {0, 0, 1}), 1U);
    EXPECT_EQ(check(0, {1, 1, 0}), 0U); // the last one counts
    EXPECT_EQ(check(1, {0, 0, 1}), 0U);
    EXPECT_EQ(check(0, {-1, 1, 1}), 0U);
    fake::state()->enclosure_result = 0xe;
    EXPECT_EQ(check(0, {0, 0, 1}), 0U);
    fake::state()->self_conf.clear(); // volume 0, of which nobody knows
    fake::state()->auth_result = 7;
    EXPECT_EQ(check(0, {0, 0, 1}), 0U);
    EXPECT_EQ(log_text(kLogVolume), "do_raid_check(799), PAL_storage_get_disk_smart_info failed,  ret=[0000005a]"
                                    "do_raid_check(788), PAL_storage_get_enclosure_list failed,  ret=[0000000e]"
                                    "do_raid_check(768), PAL_auth_get_auth failed,  ret=[00000007]"
                                    "do_raid_check(777), PAL_storage_get_volume_info failed,  ret=[0000bad0]");
}

TEST_F(RaidCheck, OnZfsTheDeviceIsBehindTheFirstTwoCharactersOfTheDiskId)
{
    write_file("/tarn/etc/TARN_ZFS", "");
    EXPECT_EQ(check(0, {0, 0, 1}), 1U); // no disk id at all
    for (const char *text : {"0x1aF", "zz1F\n", "0x2", "12", "1", "0xgh"}) {
        fake::state()->ini["/tarn/etc/volume.conf|VOL_2|diskId"] = text;
        EXPECT_EQ(check(0, {0, 0, 1}), 1U);
    }
    EXPECT_EQ(fake::state()->enclosures_asked, (std::vector<int>{0, 0x1af, 0x1f, 2, 0, 0, 0}));
    EXPECT_EQ(log_text(kLogVolume), "sysstat_vol.cpp:do_get_vpkg_system_zfs_devid(741) do_get_ini_info failed");
}

} // namespace
