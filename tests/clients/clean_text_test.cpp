#include "query_api/clean_text.h"

#include <gtest/gtest.h>

namespace {

TEST(CleanText, HasNothingLeftThatDrivesATerminal)
{
    using namespace std::string_view_literals;
    for (const auto &[text, expected, columns] : {std::tuple("Gate 1"sv, "Gate 1", 6U),
                                                  {"\x1b[2J\x1b]0;title\x07", "?[2J?]0;title?", 14},
                                                  {"a\0b\tc\nd\re\x7f"sv, "a?b?c?d?e?", 10},
                                                  {"a\xc2\x9b[31m", "a?[31m", 6}, // a control of the upper half
                                                  {"\x9b[31m", "?[31m", 5},
                                                  {"\xe2\x80\xaegpj.exe", "?gpj.exe", 8},    // turns the direction
                                                  {"a\xe2\x80\x8b.\xef\xbb\xbf", "a?.?", 4}, // without a width
                                                  {"T\xc3\xbcr", "T\xc3\xbcr", 3},
                                                  {"\xe5\x89\x8d\xe9\x97\xa8", "\xe5\x89\x8d\xe9\x97\xa8", 4}, // wide
                                                  {"e\xcc\x81", "e\xcc\x81", 1},        // combining
                                                  {"\xc0\x9b\xe0\x80\x9b", "?????", 5}, // longer than needed
                                                  {"\xed\xa0\x80", "?", 1},             // a surrogate
                                                  {"a\xe5\x89", "a??", 3},
                                                  {"\xf4\x90\x80\x80\xff", "?????", 5}}) {
        const std::string clean = clean_text(text);
        EXPECT_EQ(clean, expected);
        EXPECT_EQ(text_columns(clean), columns) << clean;
        EXPECT_EQ(clean_text(clean), clean);
    }
    EXPECT_EQ(clean_text("\xc3\xbc\xc3\xbc\xc3\xbc", 2), "\xc3\xbc\xc3\xbc"); // cut at a character
}

TEST(TextFitted, TakesExactlyItsColumns)
{
    EXPECT_EQ(text_fitted("ab", 4), "ab  ");
    EXPECT_EQ(text_fitted("ab", 4, true), "  ab");
    EXPECT_EQ(text_fitted("abcdef", 4), "abc~");
    EXPECT_EQ(text_fitted("\xe5\x89\x8d\xe9\x97\xa8\xe5", 4), "\xe5\x89\x8d~~"); // half a wide one does not fit
    EXPECT_EQ(text_fitted("abc", 0), "");
}

} // namespace
