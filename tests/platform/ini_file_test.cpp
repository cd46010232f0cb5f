#include "platform/stock/ini_file.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "platform/stock_root.h"

namespace {

struct T_CASE {
    const char *name;
    std::string text;
    int result;
    const char *value; // of [Sys] key; null for none
};

class IniParse : public testing::TestWithParam<T_CASE> {};

TEST_P(IniParse, GivesWholeValuesOrRefusesTheText)
{
    T_INI ini;
    ASSERT_EQ(ini_parse_text(GetParam().text, &ini), GetParam().result);
    const std::string *value = ini.find("Sys", "key");
    ASSERT_EQ(value != nullptr, GetParam().value != nullptr);
    if (value != nullptr) {
        EXPECT_EQ(*value, GetParam().value);
    }
}

const std::string kLong(198 - 4, 'v'); // with "key=" the longest line

INSTANTIATE_TEST_SUITE_P(
    Texts, IniParse,
    testing::Values(T_CASE{"Usual", "; c\n[Other]\nkey=no\n\n[Sys]\nkey = a value\n", 0, "a value"},
                    T_CASE{"WindowsLinesAndMark", "\xef\xbb\xbf[Sys]\r\nkey=1\r\n", 0, "1"},
                    T_CASE{"NoLastLineFeed", "[Sys]\nkey=1", 0, "1"}, T_CASE{"Empty", "", 0, nullptr},
                    T_CASE{"EmptyValue", "[Sys]\nkey=\n", 0, ""},
                    T_CASE{"SemicolonsAndSharpsStay", "[Sys]\nkey = Door ;2 #3;\n", 0, "Door ;2 #3;"},
                    T_CASE{"PercentAndQuotesStay", "[Sys]\nkey=\"%s = $(x)\"\n", 0, "\"%s = $(x)\""},
                    T_CASE{"IndentedKeyIsAKey", "[Sys]\nother=1\n  key = 2\n", 0, "2"},
                    T_CASE{"LastOfTwo", "[Sys]\nkey=1\n[B]\nkey=9\n[Sys]\nkey=2\n", 0, "2"},
                    T_CASE{"LongestLine", "[Sys]\nkey=" + kLong + "\n", 0, kLong.c_str()},
                    T_CASE{"LineTooLong", "[Sys]\nkey=" + kLong + "v\n", -EINVAL, nullptr},
                    T_CASE{"TailOfALongLineIsNoKey", "[Sys]\nother=" + kLong + "          key=1\n", -EINVAL, nullptr},
                    T_CASE{"LongComment", "#" + std::string(5000, 'x') + "\n[Sys]\nkey=1\n", 0, "1"},
                    T_CASE{"NoBracket", "[Sys]\nkey=1\n[Other\nkey=2\n", -EINVAL, nullptr},
                    T_CASE{"SectionTooLong", "[Sys]\nkey=1\n[" + std::string(50, 's') + "]\n", -EINVAL, nullptr},
                    T_CASE{"NoKey", "[Sys]\nkey=1\nrubbish\n", -EINVAL, nullptr},
                    T_CASE{"ZeroByte", std::string("[Sys]\nkey=1\0a\n", 14), -EINVAL, nullptr},
                    T_CASE{"ControlByte", "[Sys]\nkey=1\x01\n", -EINVAL, nullptr}),
    [](const auto &one) { return std::string(one.param.name); });

TEST(IniLoad, RefusesWhatIsNoSmallFile)
{
    T_INI ini;
    EXPECT_EQ(ini_load("/ini/none", &ini), -ENOENT);
    g_stock_root.folder("/ini/folder");
    EXPECT_LT(ini_load("/ini/folder", &ini), 0);
    ASSERT_EQ(mkfifo(g_stock_root.real("/ini/pipe").c_str(), 0600), 0);
    EXPECT_EQ(ini_load("/ini/pipe", &ini), -EINVAL); // and does not wait for a writer
    g_stock_root.write("/ini/large", std::string(1024 * 1024 + 1, '\n'));
    EXPECT_EQ(ini_load("/ini/large", &ini), -EFBIG);
}

TEST(IniLoad, AReplacedFileGivesTheOldOrTheNewValue)
{
    const std::string values[] = {std::string(150, 'a'), std::string(20, 'b')};
    const auto put = [&](size_t i) {
        g_stock_root.write("/ini/new", "[Sys]\nkey=" + values[i % 2] + "\n");
        rename(g_stock_root.real("/ini/new").c_str(), g_stock_root.real("/ini/file").c_str());
    };
    put(0);
    std::thread writer([&] {
        for (size_t i = 0; i < 1000; ++i)
            put(i);
    });
    for (int i = 0; i < 1000; ++i) {
        T_INI ini;
        EXPECT_EQ(ini_load("/ini/file", &ini), 0);
        const std::string *value = ini.find("Sys", "key");
        EXPECT_TRUE(value != nullptr && (*value == values[0] || *value == values[1]));
    }
    writer.join();
}

TEST(IniLoad, WaitsForAFileThatIsBeingWrittenInPlace)
{
    g_stock_root.write("/ini/file", ""); // cut just now, nothing written yet
    std::thread writer([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        g_stock_root.write("/ini/file", "[Sys]\nkey=whole\n");
    });
    T_INI ini;
    EXPECT_EQ(ini_load("/ini/file", &ini), 0);
    writer.join();
    ASSERT_NE(ini.find("Sys", "key"), nullptr);
    EXPECT_EQ(*ini.find("Sys", "key"), "whole");
}

} // namespace
