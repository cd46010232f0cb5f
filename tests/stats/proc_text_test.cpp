#include "stats/proc_text.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "fake_platform/fake_platform.h"

namespace {

TEST(ProcText, NumbersReadAsScanfReadsThem)
{
    std::string_view rest = " 7\t+8 -1 99999999999999999999 x 9";
    uint64_t value = 0;
    for (const uint64_t expected : {uint64_t{7}, uint64_t{8}, UINT64_MAX, UINT64_MAX}) {
        EXPECT_TRUE(text_next_u64(&rest, &value));
        EXPECT_EQ(value, expected);
    }
    EXPECT_FALSE(text_next_u64(&rest, &value));
    EXPECT_EQ(rest, " x 9");
    for (std::string_view nothing : {"", "  ", "-", "+", "+-1"})
        EXPECT_FALSE(text_next_u64(&nothing, &value)) << nothing;
}

class ProcFile : public fake::TPlatformTest {};

TEST_F(ProcFile, IsReadToItsEndHoweverLong)
{
    std::string text, wanted;
    for (int i = 0; i < 10000; ++i)
        wanted += std::to_string(i) + "\n";
    write_file("/long", wanted);
    EXPECT_EQ(proc_read((root() + "/long").c_str(), &text), 0);
    EXPECT_EQ(text, wanted);
    EXPECT_EQ(proc_read((root() + "/none").c_str(), &text), -1);
}

TEST(ProcText, StatFieldsStartBehindTheLastParenthesisOfTheCommand)
{
    struct {
        const char *text;
        int result;
        uint64_t utime, rss;
    } const cases[] = {
        {"7 (a) b) (c) S 1 2 3 0 -1 4 10 11 12 13 14 15 16 17 20 0 1 0 5 999 24 18446744073709551615 1\n", 0, 14, 24},
        {"7 (x) S 1 2 3 0 -1 4 10 11 12 13 14", 0, 14, 0},
        {"7 (x) S 1 2 garbage 0 -1 4 10 11 12 13 14 15", 0, 0, 0},
        {"7 (x)", 0, 0, 0},
        {"7 (x", -1, 0, 0},
    };
    for (const auto &one : cases) {
        uint64_t fields[kProcStatFields] = {};
        EXPECT_EQ(proc_stat_parse(one.text, fields), one.result) << one.text;
        EXPECT_EQ(std::tie(fields[14], fields[24]), std::tie(one.utime, one.rss)) << one.text;
    }
}

} // namespace
