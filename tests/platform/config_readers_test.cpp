#include "platform/config_readers.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <tuple>
#include <unistd.h>

#include "platform/cmv_info.h"
#include "platform/host_path.h"
#include "platform/logging.h"
#include "platform/ostra.h"
#include "platform/pal.h"
#include "platform/stock_root.h"
#include "platform/system_info.h"

namespace {

constexpr const char *kProduct = "/tarn/etc/config/OstraPro.conf";

TEST(ConfigReaders, WithoutTheRecordersFileTheDefaultsApplyAndADamagedOneIsAnError)
{
    constexpr const char *kFile = "/tarn/etc/config/nvr.conf";
    std::string out = "before";
    const auto error_for = [&out](const char *key) {
        int error = 0;
        EXPECT_EQ(__nvrcfg_get_key_value("hdd_health", key, out, &error), -1);
        EXPECT_EQ(out, "before");
        return error;
    };
    g_stock_root.remove("/tarn");
    EXPECT_EQ(error_for("sch_type"), 8);
    g_stock_root.folder(kFile);
    EXPECT_EQ(error_for("sch_type"), 2);
    g_stock_root.remove(kFile);
    g_stock_root.write(kFile, "[hdd_health]\nsch_type = weekly\n");
    EXPECT_EQ(error_for("sch_hour"), 8);
    g_stock_root.write(kFile, "[hdd_health]\nsch_type = weekly\nsch_hour 5\n");
    EXPECT_EQ(error_for("sch_hour"), 2);
    EXPECT_EQ(__nvrcfg_get_key_value("hdd_health", "sch_hour", out, nullptr), -1);
    EXPECT_EQ(__nvrcfg_get_key_value("hdd_health", "sch_type", out, nullptr), 0);
    EXPECT_EQ(out, "weekly");
}

TEST(ConfigReaders, KeepAVolumesIdWhileTheFileIsDamagedOrMissing)
{
    const auto ids = [] {
        std::string all;
        for (const char *key : {"OSTRAPRO_SYS_VOL", "OSTRAPRO_IND_VOL", "OSTRAPRO_CS_VOL"}) {
            std::string out;
            const int result = getSelfConf(key, "0", out, 0);
            all += out + (result == 0 ? " " : result == -1 ? "! " : "? ");
        }
        return all;
    };
    g_stock_root.remove("/tarn");
    EXPECT_EQ(ids(), "0! 0! 0! ");
    g_stock_root.write(kProduct, "[System]\nOSTRAPRO_SYS_VOL = 1\nOSTRAPRO_IND_VOL = 2\n");
    EXPECT_EQ(ids(), "1 2 0! ");
    g_stock_root.write(kProduct, "[Other]\nx = " + std::string(300, 'x') +
                                     "\n[System]\nOSTRAPRO_SYS_VOL 5\nOSTRAPRO_IND_VOL = 6\n");
    EXPECT_EQ(ids(), "1 6 0! ");
    g_stock_root.write(kProduct, "[System\nOSTRAPRO_SYS_VOL = 7\n");
    EXPECT_EQ(ids(), "1 6 0! ");
    g_stock_root.remove(kProduct);
    EXPECT_EQ(ids(), "1 6 0! ");
    g_stock_root.write(kProduct, "[System]\nOSTRAPRO_CS_VOL = 3\n");
    EXPECT_EQ(ids(), "0! 0! 3 "); // removed on purpose

    const auto name = [](int expected, const char *otherwise = "-") {
        std::string out;
        EXPECT_EQ(inihandler_getcfg("/tarn/etc/volume.conf", "VOL_9", "volName", otherwise, out, 0, false), expected);
        return out;
    };
    EXPECT_EQ(name(-1), "-");
    g_stock_root.write("/tarn/etc/volume.conf", "[VOL_9]\nvolName = Data\n");
    EXPECT_EQ(name(0), "Data");
    g_stock_root.write("/tarn/etc/volume.conf", "[VOL_8]\n");
    EXPECT_EQ(name(0), "-");
    EXPECT_EQ(name(0, nullptr), "");
}

TEST(SystemInfo, IsZfsWhereItsMarkerIsAndUnknownWhereItCannotBeLookedFor)
{
    constexpr const char *kMarker = "/tarn/etc/TARN_ZFS";
    EXPECT_EQ(host_path(kMarker), g_stock_root.real(kMarker));
    g_stock_root.remove("/tarn");
    uint32_t type = 7;
    EXPECT_EQ(get_platform_system(&type), 0);
    EXPECT_EQ(type, 0U);
    g_stock_root.write(kMarker, "");
    EXPECT_EQ(get_platform_system(&type), 0);
    EXPECT_TRUE(check_system_init(kMarker) && !check_system_init("/tarn/other") && !check_system_init(nullptr));
    g_stock_root.remove(kMarker);
    g_stock_root.link("TARN_ZFS", kMarker);
    testing::internal::CaptureStderr();
    EXPECT_EQ(get_platform_system(&type), -ELOOP);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "cannot check for /tarn/etc/TARN_ZFS: Too many levels of symbolic links\n");
    EXPECT_EQ(type, 2U);
}

TEST(SurveillanceLog, ThatIsThereGoesToTheToolInItsOrder)
{
    g_stock_root.tool("/usr/bin/ostra_log_tool", "printf '<%s>' \"$@\" >$VELOMOND_ROOT/logged; [ $# = 5 ]\n");
    log_info info;
    info.code = 0x4A;
    info.user = "a user";
    info.source_address = "127.0.0.1";
    EXPECT_EQ(logtool_send_surveillance_log(info), 0);
    for (const size_t i : {0U, 2U, 3U})
        info.args[i] = std::to_string(i);
    EXPECT_EQ(logtool_send_surveillance_log(info), -1);
    EXPECT_EQ(g_stock_root.read("/logged"), "<2><0x0000004a><-1><a user><127.0.0.1><0><2><3>");
    g_stock_root.remove("/usr/bin");
}

TEST(ConfigMissing, NamesWhatIsNotThereOrNotExecutable)
{
    for (const char *folder : {"/tarn", "/usr"})
        g_stock_root.remove(folder);
    g_stock_root.write("/usr/sbin/smartctl", "not executable");
    EXPECT_EQ(config_missing(),
              "missing: /tarn/etc/volume.conf (volumes are not checked), "
              "/tarn/etc/config/OstraPro.conf (no volume has a role, the database is not measured), "
              "/tarn/etc/config/nvr.conf (disk events keep their default schedule and limit), "
              "/tarn/etc/config/Tarnix.conf (the server name is not watched), "
              "/tarn/etc/config/cmv_current.conf (camera management is not watched), "
              "/tarn/etc/config/cmv_record.conf (camera management is not watched), "
              "/usr/sbin/smartctl (no SMART), /usr/bin/ostra_log_tool (no surveillance events), "
              "/usr/bin/vcmd (no power-on-hour events), /usr/local/cmsbin/cfg_bak_tool (no daily backups), "
              "/usr/sbin/apache2 (no reload after proxy rules were removed)");
    g_stock_root.remove("/usr");
}

TEST(Ostra, TheStorageFlagIsReadWhileOpenAndOnlyWhenItIsANumber)
{
    COstraStorage storage;
    int flag = 7;
    testing::internal::CaptureStderr();
    g_stock_root.remove(kProduct);
    EXPECT_EQ(storage.create_storage_setting(), -ENOENT);
    g_stock_root.write(kProduct, "[Storage]\nflag = x\n");
    EXPECT_EQ(storage.get_storage_flag(&flag), -EBADF);
    EXPECT_EQ(storage.create_storage_setting(), 0);
    EXPECT_EQ(storage.get_storage_flag(&flag), -EINVAL);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "storage settings of /tarn/etc/config/OstraPro.conf: No such file or directory\n"
              "storage flag [x] of /tarn/etc/config/OstraPro.conf: Invalid argument\n");
    for (const auto &[line, result] : std::vector<std::pair<std::string, int>>{{"flag = 2147483648", -EINVAL},
                                                                               {"flag =", -ENOENT},
                                                                               {"other = 1", -ENOENT},
                                                                               {"flag = 2147483647", 0},
                                                                               {"flag = -2147483648", 0}}) {
        g_stock_root.write(kProduct, "[Storage]\n" + line + "\n");
        EXPECT_EQ(storage.get_storage_flag(&flag), result) << line;
        EXPECT_EQ(flag, result == 0 ? std::stoi(line.substr(7)) : 7);
    }
    storage.destroy_storage_setting();
    EXPECT_EQ(storage.get_storage_flag(&flag), -EBADF);
}

TEST(Ostra, TheDatabaseIsMeasuredWithinItsFolder)
{
    constexpr size_t kMb = 1048576;
    CDBSize probe;
    db_size_m size;
    g_stock_root.write(kProduct, "[Database]\npath = /db\n");
    EXPECT_EQ(probe.init(), 0);
    EXPECT_EQ(probe.check_database_size(size), -ENOENT);
    g_stock_root.write("/elsewhere/large", std::string(9 * kMb, 'x'));
    g_stock_root.write("/db/a", std::string(2 * kMb + kMb / 2, 'x'));
    g_stock_root.write("/db/in/deeper/b", std::string(kMb / 2, 'x'));
    g_stock_root.link("../elsewhere", "/db/folder_link");
    g_stock_root.link("../elsewhere/large", "/db/file_link");
    g_stock_root.link("..", "/db/in/up");
    ASSERT_EQ(probe.check_database_size(size), 0);
    EXPECT_EQ(std::tie(size.files, size.folders, size.largest_mb, size.total_mb), std::tuple(2U, 2U, 2U, 3U));
    std::string deep = "/db";
    for (int i = 0; i < 70; ++i)
        deep += "/d";
    g_stock_root.write(deep + "/f", "");
    ASSERT_EQ(probe.check_database_size(size), 0);
    EXPECT_EQ(size.files + size.folders, 2U + 2 + 65); // not entered any more
}

TEST(CmvInfo, FillsFromZerosClampsAndCuts)
{
    g_stock_root.remove("/tarn");
    g_stock_root.write(
        "/tarn/etc/config/cmv_current.conf",
        "[cmv]\nvalue1=12\nvalue2=300\nvalue3=7\nvalue4=-9999999999\ntext1=cam\ntext2=" + std::string(70, 'y') + "\n");
    st_cmv_info got;
    memset(&got, 0xff, sizeof(got));
    ASSERT_EQ(get_cmv_info(got), 0);
    st_cmv_info expected = {12, 255, 7, 0, INT32_MIN, "cam", {}};
    memset(expected.text2, 'y', 63);
    EXPECT_EQ(check_cmv_info(got), -ENOENT);
    for (const char *damaged : {"[cmv]\nvalue1=1\nvalue2\n", "[cmv\nvalue1=1\n"}) {
        g_stock_root.write("/tarn/etc/config/cmv_record.conf", damaged);
        EXPECT_EQ(check_cmv_info(got), -EINVAL) << damaged;
    }
    EXPECT_EQ(memcmp(&got, &expected, sizeof(got)), 0);
}

TEST(ServerName, IsTheHostNameWhereTheFileHasNoNameAndNotForADamagedFile)
{
    constexpr const char *kFile = "/tarn/etc/config/Tarnix.conf";
    const auto read = [](uint32_t expected) {
        t_system reply;
        reply.server_name = "before";
        EXPECT_EQ(PAL_system_get_syssetting({}, {}, reply), expected);
        return reply.server_name;
    };
    const std::string bad_line = "x = " + std::string(300, 'x') + "\n";
    char host[256] = "";
    EXPECT_EQ(gethostname(host, sizeof(host) - 1), 0);
    for (const auto &[text, name, result] :
         {std::tuple(std::string("[System]\nServer Name = recorder"), std::string("recorder"), 0U),
          {"[System]\nServer Name =\n", host, 0},
          {"[Other]\nServer Name = x\n", host, 0},
          {"", host, 0},
          {bad_line + "[System]\nServer Name = recorder\n", "recorder", 0},
          {bad_line + "[System]\nTime Zone = 1\n", "before", EINVAL},
          {"[System\nServer Name = x\n", "before", EINVAL}}) {
        g_stock_root.write(kFile, text);
        std::filesystem::last_write_time(g_stock_root.real(kFile),
                                         std::filesystem::file_time_type::clock::now() - std::chrono::seconds(3));
        EXPECT_EQ(read(result), name) << text;
    }
    testing::internal::CaptureStderr();
    g_stock_root.remove(kFile);
    EXPECT_EQ(read(ENOENT), "before");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string(kFile) + " cannot be used: No such file or directory\n");
}

} // namespace
