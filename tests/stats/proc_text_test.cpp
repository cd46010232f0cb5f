#include "stats/proc_text.h"

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
    std::string wanted;
    for (int i = 0; i < 10000; ++i)
        wanted += std::to_string(i) + "\n";
    write_file("/long", wanted);
    EXPECT_EQ(proc_read("/long"), wanted);
    EXPECT_TRUE(proc_read("/missing") == std::nullopt && proc_read("/") == ""); // a folder has no text
}

TEST(ProcText, StatFieldsStartBehindTheLastParenthesisOfTheCommand)
{
    const std::tuple<const char *, uint64_t, uint64_t> cases[] = {
        {"7 (a) b) (c) S 1 2 3 0 -1 4 10 11 12 13 14 15 16 17 20 0 1 0 5 999 24 18446744073709551615 1\n", 14, 24},
        {"7 (x) S 1 2 3 0 -1 4 10 11 12 13 14", 14, 0},
        {"7 (x) S 1 2 garbage 0 -1 4 10 11 12 13 14 15", 0, 0},
        {"7 (x)", 0, 0},
    };
    for (const auto &[text, utime, rss] : cases) {
        const auto fields = proc_stat_parse(text);
        EXPECT_EQ(std::tuple(fields->at(kUserTime), fields->at(kResidentPages)), std::tie(utime, rss)) << text;
    }
    EXPECT_EQ(proc_stat_parse("7 (x"), std::nullopt);
}

} // namespace
