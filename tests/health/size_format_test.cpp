#include "health/size_format.h"

#include <gtest/gtest.h>
#include <string>

namespace {

constexpr uint64_t kMb = 1048576;
constexpr uint64_t kMinus5 = UINT64_MAX - 4; // a negative count of MB, modulo 2^64

std::string human(const std::vector<uint64_t> &counts, uint64_t unit, uint64_t divisor = 0)
{
    std::string all;
    for (const uint64_t count : counts) {
        char text[16] = "kept";
        format_size_human(text, sizeof(text), count, unit, divisor);
        all.append(text).append("|");
    }
    return all;
}

/* The token of a unit is shown by its number. */
std::string quoted(const std::vector<uint64_t> &counts, uint64_t unit, bool rounded = false)
{
    std::string all;
    for (const uint64_t count : counts) {
        char value[32] = "kept", token[32] = "'$DEF_V000'";
        format_size_quoted(value, sizeof(value), token, sizeof(token), count, unit, rounded);
        EXPECT_EQ(std::string(token).erase(9, 1), "'$DEF_V00'");
        all.append(value).append(1, token[9]).append("|");
    }
    return all;
}

TEST(SizeFormat, HumanSizesHaveTheirLetter)
{
    EXPECT_EQ(human({0, 1023, 1024, 1536, 1048575, kMb, UINT64_MAX}, 1),
              "kept|1023|1.0 KB|1.5 KB|1024.0 KB|1.0 MB|16.0 EB|");
    /* A remainder of 972 still gives a tenth; from 973 on it is the next whole value. */
    EXPECT_EQ(human({9728, 10188, 10189, 10199, kMb}, kMb), "9.5 GB|9.9 GB|10.0 GB|10.0 GB|1.0 TB|");
    EXPECT_EQ(human({kMinus5, 0}, kMb), "16.0 EB|kept|");
    EXPECT_EQ(human({512, 1450, 1536}, 0), "512|1 KB|2 KB|");
    EXPECT_EQ(human({0, 1535, 1536}, 1, 1024) + human({10}, 0, 3), "kept|1|2|3|");
}

TEST(SizeFormat, QuotedSizesHaveTheirUnitBesideThem)
{
    EXPECT_EQ(quoted({0, 1, 1073741823, 1073741824}, 1), "kept0|'0'1|'1023'1|'1.0'2|");
    EXPECT_EQ(quoted({1024, 9728, 1048575, 1048576}, kMb), "'1.0'2|'9.5'2|'1024.0'2|'1.0'3|");
    EXPECT_EQ(quoted({1024, 9625, 9728, 1048576}, kMb, true), "'1'2|'9'2|'10'2|'1'3|");
    EXPECT_EQ(quoted({5 * kMb, 1610612736}, 0), "'5'1|'2'2|");
    EXPECT_EQ(quoted({kMinus5}, kMb), "'16777216.0'3|");
}

} // namespace
