#include "platform/stock/config/ini_file.h"

#include <cerrno>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <tuple>
#include <unistd.h>

#include "platform/pal.h"
#include "platform/stock_root.h"

static thread_local std::function<void()> g_asleep; // called instead of sleeping

/* In place of the C library's. */
extern "C" int nanosleep(const timespec *time, timespec *left)
{
    if (!g_asleep)
        return static_cast<int>(syscall(SYS_nanosleep, time, left));
    g_asleep();
    return 0;
}

namespace {

TEST(IniParse, ReturnsWholeValuesAndIgnoresUnreadableLines)
{
    const std::string longest(198 - 4, 'v'); // with "key=" the longest line
    const struct {
        std::string text;
        const char *value; // of [Sys] key; null if missing
        size_t left_out = 0, first_left_out = 0;
    } cases[] = {{"; c\nkey=0\n[Other]\nkey=no\n\n[Sys]\nother=1\n  key = a value", "a value"},
                 {"\xef\xbb\xbf[Sys]\r\nkey=1\r\n", "1"},
                 {"[Sys]\nkey=\n", ""},
                 {"[Sys]\nkey = \"%s = $(x)\" ;2 #3;\n", "\"%s = $(x)\" ;2 #3;"},
                 {"[Sys]\nkey=1\n[B]\nkey=9\n[Sys]\nkey=2\n", "2"},
                 {"[Sys]\nkey=" + longest + "\n", longest.c_str()},
                 {"[Sys]\nkey=" + longest + "v\n", nullptr, 1, 2},
                 {"[Sys]\nother=" + longest + "          key=1\n", nullptr, 1, 2}, // part of a long line, not a key
                 {"#" + std::string(5000, 'x') + "\n[Sys]\nkey=1\n", "1"},
                 {"[Sys]\nkey=1\n[Other\nkey=2\n\n#\nrest=1\n[Sys]\nname=3\n", "1", 3, 3},
                 {"[Sys]\nkey=1\n[" + std::string(50, 's') + "]\nkey=2\n", "1", 2, 3},
                 {"box\n[Sys]\nbox\nkey=1\nbox\n", "1", 3, 1},
                 {std::string("[Sys]\nkey=1\0a\n", 14), nullptr, 1, 2},
                 {"[Sys]\nkey=1\x7f\n", nullptr, 1, 2},
                 {"[Sys]\nkey=1\t2\nother=\x1f\n", "1\t2", 1, 3},
                 {"[Sys]\nkey=1\n[\x01]\nkey=2\n", "1", 2, 3},
                 {std::string(300, '\0'), nullptr, 1, 1}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.text);
        const TIni ini = ini_parse_text(one.text);
        std::string value;
        EXPECT_STREQ(ini.get("Sys", "key", &value) == 0 ? value.c_str() : nullptr, one.value);
        EXPECT_EQ(std::tie(ini.left_out, ini.first_left_out), std::tie(one.left_out, one.first_left_out));
    }
}

TEST(IniLoad, LogsIgnoredLinesOncePerChangeOfTheFile)
{
    const auto logged = [](const char *text) {
        g_stock_root.write("/ini/damaged", text);
        testing::internal::CaptureStderr();
        TIni ini;
        EXPECT_EQ(ini_load("/ini/damaged", &ini), 0);
        return testing::internal::GetCapturedStderr();
    };
    const std::string line = "/ini/damaged: 1 unreadable lines ignored, the first is line ";
    EXPECT_EQ(logged("[Sys]\nkey\n"), line + "2\n");
    EXPECT_EQ(logged("[Sys]\nkey\n"), "");
    EXPECT_EQ(logged("[Sys]\nother=1\nkey\n"), line + "3\n");
    EXPECT_EQ(logged("[Sys]\nkey=1\n"), "");
    EXPECT_EQ(logged("[Sys]\nother=1\nkey"), line + "3\n"); // written just now, and not being written
}

TEST(IniLoad, RejectsWhatIsNotASmallFile)
{
    TIni ini;
    EXPECT_EQ(ini_load("/ini/none", &ini), -ENOENT);
    g_stock_root.folder("/ini/folder");
    EXPECT_LT(ini_load("/ini/folder", &ini), 0);
    ASSERT_EQ(mkfifo(g_stock_root.real("/ini/pipe").c_str(), 0600), 0);
    EXPECT_EQ(ini_load("/ini/pipe", &ini), -EINVAL); // without waiting for a writer
    for (const auto &[size, result] : {std::pair(size_t{1024} * 1024, 0), {size_t{1024} * 1024 + 1, -EFBIG}}) {
        g_stock_root.write("/ini/large", std::string(size, '\n'));
        EXPECT_EQ(ini_load("/ini/large", &ini), result);
    }
    g_stock_root.write("/ini/cut", ""); // truncated, but never written
    EXPECT_EQ(ini_load("/ini/cut", &ini), -EAGAIN);
    std::filesystem::last_write_time(g_stock_root.real("/ini/cut"),
                                     std::filesystem::file_time_type::clock::now() - std::chrono::seconds(3));
    EXPECT_EQ(ini_load("/ini/cut", &ini), 0);
}

TEST(IniLoad, ReadsAFileAgainThatIsBeingWrittenInPlace)
{
    const std::string file = "/tarn/etc/config/Tarnix.conf";
    const std::string text = "[System]\nTime Zone = 1\nServer Name = recorder\n[Time]\n";
    const auto write_all_after = [&](int sleeps, size_t written) {
        g_stock_root.write(file, text.substr(0, written));
        g_asleep = [&, sleeps]() mutable {
            if (--sleeps == 0)
                g_stock_root.write(file, text);
        };
    };
    write_all_after(5, 0);
    TIni ini;
    EXPECT_EQ(ini_load(file, &ini), 0);
    EXPECT_EQ(ini.values.size(), 2U);
    for (const size_t written : {size_t{0}, size_t{9}, size_t{20}, text.find("order")}) {
        write_all_after(10, written); // more than a load waits for
        t_system reply;
        EXPECT_EQ(PAL_system_get_syssetting({}, {}, reply), 0U);
        EXPECT_EQ(reply.server_name, "recorder") << written;
    }
    g_asleep = nullptr;
}

} // namespace
