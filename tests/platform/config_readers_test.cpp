#include "platform/config_readers.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

#include "platform/cmv_info.h"
#include "platform/ostra.h"
#include "platform/pal.h"
#include "platform/stock_root.h"

namespace {

constexpr const char *kProduct = "/tarn/etc/config/OstraPro.conf";

TEST(ConfigReaders, TellAMissingKeyFromAMissingFile)
{
    std::string out = "before";
    int error = 0;
    g_stock_root.remove("/tarn");
    EXPECT_EQ(__nvrcfg_get_key_value("hdd_health", "sch_type", out, &error), -1);
    EXPECT_EQ(error, 2);
    EXPECT_LT(inihandler_getcfg("/tarn/etc/volume.conf", "VOL_1", "volName", "GETCFG_FAILD", out, 0, false), 0);
    EXPECT_EQ(out, "GETCFG_FAILD");
    EXPECT_LT(getSelfConf("OSTRAPRO_SYS_VOL", "0", out, 0), 0);
    EXPECT_EQ(out, "0");

    g_stock_root.write("/tarn/etc/config/nvr.conf", "[hdd_health]\nsch_type = weekly\n");
    g_stock_root.write("/tarn/etc/volume.conf", "[VOL_1]\nvolName = x\n");
    EXPECT_EQ(__nvrcfg_get_key_value("hdd_health", "sch_hour", out, &error), -1);
    EXPECT_EQ(error, 8);
    EXPECT_EQ(inihandler_getcfg("/tarn/etc/volume.conf", "VOL_1", "zfsId", nullptr, out, 0, false), 0);
    EXPECT_EQ(out, "");
}

TEST(Ostra, TheStorageFlagIsReadWhileOpenAndOnlyWhenItIsANumber)
{
    COstraStorage storage;
    int flag = 7;
    g_stock_root.write(kProduct, "[Storage]\nflag = 3\n");
    EXPECT_LT(storage.get_storage_flag(&flag), 0);
    EXPECT_EQ(storage.create_storage_setting(), 0);
    EXPECT_EQ(storage.get_storage_flag(&flag), 0);
    EXPECT_EQ(flag, 3);
    for (const char *text : {"[Storage]\nflag = x\n", "[Storage]\nflag = 4294967296\n", "[Other]\nflag = 1\n"}) {
        g_stock_root.write(kProduct, text);
        EXPECT_LT(storage.get_storage_flag(&flag), 0);
        EXPECT_EQ(flag, 3);
    }
    storage.destroy_storage_setting();
}

TEST(Ostra, TheDatabaseIsMeasuredWithinItsFolder)
{
    constexpr size_t kMb = 1048576;
    g_stock_root.write(kProduct, "[Database]\npath = /db\n");
    CDBSize probe;
    db_size_m size;
    EXPECT_EQ(probe.init(), 0);
    EXPECT_EQ(probe.check_database_size(size), -ENOENT);
    g_stock_root.write("/elsewhere/large", std::string(9 * kMb, 'x'));
    g_stock_root.write("/db/a", std::string(2 * kMb + kMb / 2, 'x'));
    g_stock_root.write("/db/in/deeper/b", std::string(kMb / 2, 'x'));
    g_stock_root.link("../elsewhere", "/db/folder_link");
    g_stock_root.link("../elsewhere/large", "/db/file_link");
    g_stock_root.link("..", "/db/in/up");
    ASSERT_EQ(probe.check_database_size(size), 0);
    EXPECT_EQ(size.files, 2U);
    EXPECT_EQ(size.folders, 2U);
    EXPECT_EQ(size.largest_mb, 2U);
    EXPECT_EQ(size.total_mb, 3U);
}

TEST(CmvInfo, FillsFromZerosClampsAndCuts)
{
    g_stock_root.write(
        "/tarn/etc/config/cmv_current.conf",
        "[cmv]\nvalue1=1\nvalue2=300\nvalue3=-1\nvalue4=-9999999999\ntext1=cam\ntext2=" + std::string(70, 'y') + "\n");
    st_cmv_info got;
    memset(&got, 0xff, sizeof(got));
    ASSERT_EQ(get_cmv_info(got), 0);
    st_cmv_info expected = {1, 255, 0, 0, INT32_MIN, "cam", {}};
    memset(expected.text2, 'y', 63);
    EXPECT_LT(check_cmv_info(got), 0); // has no file
    EXPECT_EQ(memcmp(&got, &expected, sizeof(got)), 0);
}

TEST(SystemSetting, TheHostNameStandsInForTheServerName)
{
    char host[256] = "";
    ASSERT_EQ(gethostname(host, sizeof(host) - 1), 0);
    for (const char *text : {"[System]\nServer Name =\n", "[System\nServer Name = x\n"}) {
        g_stock_root.write("/tarn/etc/config/Tarnix.conf", text);
        t_system reply;
        EXPECT_EQ(PAL_system_get_syssetting({}, {}, reply), 0U);
        EXPECT_EQ(reply.server_name, host) << text;
    }
}

} // namespace
