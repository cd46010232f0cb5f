#include "housekeeping/sysstat_servername.h"

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/inotify.h>

#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"
#include "housekeeping/file_watcher.h"

namespace {

std::string event(uint32_t mask, uint32_t name_length = 0, size_t cut = 0)
{
    const struct inotify_event head = {1, mask, 0, name_length};
    std::string bytes(reinterpret_cast<const char *>(&head), sizeof(head));
    bytes.append(name_length, 'n');
    bytes.resize(bytes.size() - cut);
    return bytes;
}

TEST(FileEvents, CountChangesUpToTheEndOfTheWatchOrOfTheText)
{
    std::string endless = event(IN_MODIFY);
    memset(endless.data() + offsetof(inotify_event, len), 0xFF, sizeof(uint32_t));
    struct {
        std::string bytes;
        size_t events;
        int changes;
        bool ended;
    } const cases[] = {
        {event(IN_MODIFY) + event(IN_ATTRIB, 16) + event(IN_MOVE_SELF), 3, 2, false},
        {event(IN_ATTRIB) + event(IN_DELETE_SELF) + event(IN_MODIFY), 2, 1, true},
        {event(IN_IGNORED), 1, 0, true},
        {event(IN_MODIFY) + event(IN_MODIFY, 16, 1), 1, 1, false}, // a name cut short
        {event(IN_MODIFY, 0, 1), 0, 0, false},
        {endless, 0, 0, false},
    };
    for (const auto &one : cases) {
        const T_FILE_NEWS news = file_events_parse(one.bytes);
        EXPECT_EQ(std::tuple(news.folders.size(), news.changes, news.watch_ended),
                  std::tie(one.events, one.changes, one.ended));
    }
    EXPECT_EQ(file_events_parse(event(IN_MODIFY | IN_ISDIR)).folders, std::vector<bool>{true});
}

class FileWatcher : public fake::TPlatformTest {
protected:
    static size_t descriptors()
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
    }
    int changes = 0;
    TFileWatcher watcher{{"/tarn/etc/config/Tarnix.conf"}, [this] { ++changes; }};
    const std::string file = "/tarn/etc/config/Tarnix.conf";
};

TEST_F(FileWatcher, SurvivesEveryWayOfReplacingTheFile)
{
    testing::internal::CaptureStdout();
    watcher.run(); // nothing there yet
    EXPECT_EQ(log_text(kLogServerName), "sysstat_servername.cpp:regsiter_notify (106) Cannot watch "
                                        "'/tarn/etc/config/Tarnix.conf'."
                                        "sysstat_servername.cpp:regsiter_notify (106) Cannot watch "
                                        "'/tarn/etc/config/Tarnix.conf'."
                                        "sysstat_servername.cpp:run (177) regsiter_notify failed.");
    write_file(file, "a");
    watcher.run();
    EXPECT_EQ(changes, 0);
    const size_t before = descriptors();
    for (int i = 0; i < 5; ++i) { // the kernel takes its time to forget a watched file
        changes = 0;
        write_file(file, "rewritten in place");
        watcher.run();
        EXPECT_GE(changes, 1);
        write_file(file + ".new", "b");
        std::filesystem::rename(root() + file + ".new", root() + file);
        watcher.run(); // sees the old one go
        watcher.run(); // watches the new one
        changes = 0;
        write_file(file, "c");
        watcher.run();
        EXPECT_GE(changes, 1);
        std::filesystem::remove(root() + file);
        watcher.run();
        watcher.run(); // cannot watch
        write_file(file, "d");
        watcher.run();
    }
    EXPECT_EQ(descriptors(), before);
    watcher.unregsiter_notify();
    EXPECT_NE(testing::internal::GetCapturedStdout().find(" [file]\n"), std::string::npos);
    EXPECT_EQ(log_text(kLogServerName).find("removing watch"), std::string::npos);
}

class ServerName : public fake::TPlatformTest {};

TEST_F(ServerName, ThreeFailuresAreAnEmptyNameAndAFailedSendIsDropped)
{
    fake::state()->syssetting.server_name = "first";
    servername_changed();
    do_handling();
    EXPECT_TRUE(fake::requests().empty());
    fake::state()->syssetting_result = 0xAB;
    do_handling(); // every request fails
    do_handling();
    const auto requests = fake::requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].port, 10150);
    EXPECT_EQ(requests[0].body, R"({"act":"refresh_nasname","arg":[""]})");
    EXPECT_EQ(requests[0].timeout_s, 5);
    EXPECT_EQ(log_text(kLogSmart), "sysstat_servername.cpp:do_handling (342) ssci_PUT_request failed (3)\n");
    const std::string failure = "get_cur_servername(301), PAL_system_get_syssetting failed,  ret=[000000ab]";
    EXPECT_EQ(log_text(kLogServerName), failure + failure + failure + failure + failure + failure);
}

} // namespace
