#include "core/dump_folder.h"

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
    written += dump(1).back();
    for (const char *made : {"/Vtmp/.sys_stats", "/Vtmp/.sys_stats/log_0"}) // the mode is deliberate
        EXPECT_EQ(std::filesystem::status(root() + made).permissions(), std::filesystem::perms(0644)) << made;
    write_file("/Vtmp/.sys_stats/log_bak_1", "a file in the way, which goes");
    write_file("/Vtmp/.sys_stats/log_3/number", "another's");
    for (int number = 2; number <= 8; ++number)
        written += dump(number).back();
    EXPECT_EQ(written, "01201200");
    for (const char *name : {"0", "1", "2", "bak_0", "bak_1", "bak_2", "3"})
        held += read_file(std::string("/Vtmp/.sys_stats/log_") + name + "/number");
    EXPECT_EQ(held, "856123another's"); // backups are in the way of others, and kept
}

} // namespace
