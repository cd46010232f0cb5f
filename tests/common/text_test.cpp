#include "base/text.h"

#include <climits>
#include <gtest/gtest.h>

namespace {

TEST(Text, NumbersReadAsAtoiDoesAndAreClampedToInt)
{
    for (const auto &[text, value] :
         std::initializer_list<std::pair<const char *, int>>{{"15", 15},
                                                             {"  -3x", -3},
                                                             {"", 0},
                                                             {"abc", 0},
                                                             {"99999999999", INT_MAX},
                                                             {"-99999999999999999999", INT_MIN}})
        EXPECT_EQ(text_to_int(text), value) << text;
}

TEST(Text, CopiesWhatTheBufferHoldsUpToANul)
{
    char buffer[4] = "zzz";
    EXPECT_EQ(text_copy(buffer, "abcdef"), 3U);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(text_copy(buffer, std::string_view("a\0b", 3)), 1U);
    EXPECT_STREQ(buffer, "a");
    EXPECT_EQ(text_format("%s-%03d", std::string(5000, 'y').c_str(), 7), std::string(5000, 'y') + "-007");
}

} // namespace
