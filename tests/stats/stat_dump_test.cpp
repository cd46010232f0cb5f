#include "stats/stat_dump.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

#include "fake_platform/fake_platform.h"

namespace {

using CsvWrite = fake::TPlatformTest;

TEST_F(CsvWrite, KeepsTheLastGoodFileWhereTheNewOneCannotBeWritten)
{
    write_file("/dump/a.csv.new", "left behind by a crash\n");
    csv_write("/dump", "a.csv", "good\n");
    EXPECT_EQ(std::filesystem::status(root() + "/dump/a.csv").permissions(), std::filesystem::perms(0644));
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const struct rlimit full = {4096, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_EQ(fake::stderr_of([] { csv_write("/dump", "a.csv", std::string(5000, 'x')); }),
              "cannot write /dump/a.csv: File too large\n");
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(read_file("/dump/a.csv"), "good\n");
    EXPECT_FALSE(exists("/dump/a.csv.new"));

    ASSERT_EQ(mkdir((root() + "/dump/b.csv").c_str(), 0755), 0); // in the way
    EXPECT_EQ(fake::stderr_of([] { csv_write("/dump", "b.csv", "x"); }), "cannot write /dump/b.csv: Is a directory\n");
    EXPECT_EQ(fake::stderr_of([] { csv_write("/missing", "c.csv", "x"); }), "");

    csv_write(("/dump" + std::string(244, '/')).c_str(), "a.csv", "n"); // 255 characters
    csv_write(("/dump" + std::string(245, '/')).c_str(), "a.csv", "too long\n");
    EXPECT_EQ(read_file("/dump/a.csv"), "n");
}

} // namespace
