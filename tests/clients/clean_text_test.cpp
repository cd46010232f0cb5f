#include "query_api/clean_text.h"

#include <gtest/gtest.h>

namespace {

struct TCase {
    const char *name;
    std::string_view text;
    const char *clean;
    size_t columns;
};

using namespace std::string_view_literals;

const TCase kCases[] = {
    {"Plain", "Gate 1", "Gate 1", 6},
    {"EscapeSequence", "\x1b[2J\x1b]0;title\x07", "?[2J?]0;title?", 14},
    {"NulAndTabAndLines", "a\0b\tc\nd\re\x7f"sv, "a?b?c?d?e?", 10},
    {"ControlOfTheUpperHalf",
     "a\xc2\x9b"
     "31m",
     "a?31m", 5},
    {"LoneUpperControl",
     "\x9b"
     "31m",
     "?31m", 4},
    {"TurnedAround", "\xe2\x80\xaegpj.exe", "?gpj.exe", 8},
    {"NoWidth",
     "a\xe2\x80\x8b"
     "b\xef\xbb\xbf",
     "a?b?", 4},
    {"Umlaut", "T\xc3\xbcr", "T\xc3\xbcr", 3},
    {"Wide", "\xe5\x89\x8d\xe9\x97\xa8", "\xe5\x89\x8d\xe9\x97\xa8", 4},
    {"Combining", "e\xcc\x81", "e\xcc\x81", 1},
    {"Overlong", "\xc0\x9b\xe0\x80\x9b", "?????", 5},
    {"Surrogate", "\xed\xa0\x80", "?", 1},
    {"CutShort", "a\xe5\x89", "a??", 3},
    {"AboveAll", "\xf4\x90\x80\x80\xff", "?????", 5},
};

class CleanText : public testing::TestWithParam<TCase> {};

TEST_P(CleanText, HasNothingLeftThatDrivesATerminal)
{
    const std::string clean = clean_text(GetParam().text);
    EXPECT_EQ(clean, GetParam().clean);
    EXPECT_EQ(text_columns(clean), GetParam().columns);
    EXPECT_EQ(clean_text(clean), clean);
}
INSTANTIATE_TEST_SUITE_P(All, CleanText, testing::ValuesIn(kCases),
                         [](const auto &one) { return std::string(one.param.name); });

TEST(CleanText, CutsAtACharacter)
{
    EXPECT_EQ(clean_text("\xc3\xbc\xc3\xbc\xc3\xbc", 2), "\xc3\xbc\xc3\xbc");
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
