#include "platform/stock/ini_file.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "platform/stock_root.h"

namespace {

TEST(IniParse, GivesWholeValuesOrRefusesTheText)
{
    const std::string longest(198 - 4, 'v'); // with "key=" the longest line
    const struct {
        std::string text;
        const char *value; // of [Sys] key; null where the text is refused
    } cases[] = {{"; c\n[Other]\nkey=no\n\n[Sys]\nkey = a value\n", "a value"},
                 {"\xef\xbb\xbf[Sys]\r\nkey=1\r\n", "1"},
                 {"[Sys]\nkey=1", "1"},
                 {"[Sys]\nkey=\n", ""},
                 {"[Sys]\nkey = Door ;2 #3;\n", "Door ;2 #3;"},
                 {"[Sys]\nkey=\"%s = $(x)\"\n", "\"%s = $(x)\""},
                 {"[Sys]\nother=1\n  key = 2\n", "2"},
                 {"[Sys]\nkey=1\n[B]\nkey=9\n[Sys]\nkey=2\n", "2"},
                 {"[Sys]\nkey=" + longest + "\n", longest.c_str()},
                 {"[Sys]\nkey=" + longest + "v\n", nullptr},
                 {"[Sys]\nother=" + longest + "          key=1\n", nullptr}, // no key of its own
                 {"#" + std::string(5000, 'x') + "\n[Sys]\nkey=1\n", "1"},
                 {"[Sys]\nkey=1\n[Other\nkey=2\n", nullptr},
                 {"[Sys]\nkey=1\n[" + std::string(50, 's') + "]\n", nullptr},
                 {"[Sys]\nkey=1\nrubbish\n", nullptr},
                 {std::string("[Sys]\nkey=1\0a\n", 14), nullptr},
                 {"[Sys]\nkey=1\x01\n", nullptr}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.text);
        T_INI ini;
        EXPECT_EQ(ini_parse_text(one.text, &ini), one.value != nullptr ? 0 : -EINVAL);
        const std::string *value = ini.find("Sys", "key");
        EXPECT_STREQ(value != nullptr ? value->c_str() : nullptr, one.value);
    }
}

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
