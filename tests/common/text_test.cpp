#include "base/text.h"

#include <bit>
#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

TEST(Text, NumbersReadAsAtoiDoesAndAreClampedToInt)
{
    for (const auto &[text, value] : {std::pair("15", 15),
                                      {"  -3x", -3},
                                      {"", 0},
                                      {"abc", 0},
                                      {"99999999999", INT_MAX},
                                      {"-99999999999999999999", INT_MIN}})
        EXPECT_EQ(text_to_int(text), value) << text;
    long long part = 0;
    EXPECT_TRUE(text_to_number(std::string_view("-123").substr(0, 3), &part) && part == -12);
}

TEST(Text, CopiesWhatTheBufferHoldsUpToANul)
{
    char buffer[4] = "zzz";
    EXPECT_EQ(text_copy(buffer, "abcdef"), 3U);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(text_copy(buffer, std::string_view("a\0b", 3)), 1U);
    EXPECT_TRUE(text_copy(buffer, 0, "b") == 0 && std::string(buffer) == "a");
    EXPECT_EQ(text_printable("a b~\x7f\n"), "a b~\\x7f\\x0a");
    EXPECT_EQ(text_trimmed("\r\n x y\t "), "x y");
    EXPECT_EQ(text_format("%s-%03d", std::string(5000, 'y').c_str(), 7), std::string(5000, 'y') + "-007");
}

TEST(TextFixed, HasTheDigitsOfPrintf)
{
    std::vector<double> values = {0.0, -0.0, 0.05, 0.25,  0.45,   2.5,      0.95,      99.95, 99.949999999999989,
                                  1e9, 1e22, -1.5, 1e308, 1e-320, INFINITY, -INFINITY, NAN,   184467440737095516.0};
    std::mt19937_64 any;
    for (int i = 0; i < 20000; ++i) {
        values.push_back(std::bit_cast<double>(any()));
        const auto part = static_cast<double>(any() % 100000), whole = static_cast<double>(1 + any() % 100000);
        values.push_back(100 * part / whole); // a share in percent, often in the middle of two figures
    }
    for (const double value : values) {
        for (const int decimals : {0, 1, 2})
            ASSERT_EQ(text_fixed(value, decimals), text_format("%.*f", decimals, value)) << decimals;
    }
}

} // namespace
