#include "core/dump_folder.h"

#include <sys/stat.h>

#include "fake_platform/fake_platform.h"

namespace {

class DumpFolder : public fake::TPlatformTest {
protected:
    /* One dump, which leaves its number behind. */
    static std::string dump(int number)
    {
        std::string folder = dump_folder_open();
        write_file(folder + "/number", std::to_string(number));
        return folder;
    }
};

TEST_F(DumpFolder, RotatesOnceAndThenWritesTheFirstAgain)
{
    write_file("/Vtmp/keep", "");
    std::string written, held;
    for (int number = 1; number <= 8; ++number)
        written += dump(number).back();
    EXPECT_EQ(written, "01201200");
    for (const char *name : {"0", "1", "2", "bak_0", "bak_1", "bak_2"})
        held += read_file(std::string("/Vtmp/.sys_stats/log_") + name + "/number");
    EXPECT_EQ(held, "856123"); // backups are in the way of others, and kept
}

TEST_F(DumpFolder, MakesFoldersWithTheirDeliberateMode)
{
    write_file("/Vtmp/keep", "");
    const std::string folder = dump_folder_open();
    for (const std::string &path : {std::string("/Vtmp/.sys_stats"), folder}) {
        struct stat status = {};
        ASSERT_EQ(stat((root() + path).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0644U) << path;
    }
}

TEST_F(DumpFolder, AFileInTheWayOfABackupIsReplaced)
{
    write_file("/Vtmp/keep", "");
    for (int i = 0; i < 3; ++i)
        dump(i);
    write_file("/Vtmp/.sys_stats/log_bak_1", "a file");
    EXPECT_EQ(dump(3), "/Vtmp/.sys_stats/log_0");
    EXPECT_EQ(read_file("/Vtmp/.sys_stats/log_bak_1/number"), "1");
}

} // namespace
