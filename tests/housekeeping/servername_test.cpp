#include "housekeeping/sysstat_servername.h"

#include <cstddef>
#include <cstring>
#include <filesystem>
#include <new>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <tuple>
#include <utility>

#include "common/debug_log.h"
#include "common/trace.h"
#include "fake_platform/fake_platform.h"
#include "housekeeping/file_watcher.h"
#include "platform/interrupt.h"

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
    constexpr TFileEvent kChange = {false, true, false}, kEnd = {false, false, true}, kOther = {};
    const std::pair<std::string, std::vector<TFileEvent>> cases[] = {
        {event(IN_MODIFY) + event(IN_ATTRIB, 16) + event(IN_MOVE_SELF), {kChange, kChange, kOther}},
        {event(IN_ATTRIB) + event(IN_DELETE_SELF) + event(IN_MODIFY), {kChange, kEnd}},
        {event(IN_IGNORED), {kEnd}},
        {event(IN_MODIFY) + event(IN_MODIFY, 16, 1), {kChange}}, // a name cut short
        {event(IN_MODIFY, 0, 1), {}},
        {endless, {}},
        {event(IN_MODIFY | IN_ISDIR), {{true, true, false}}},
    };
    for (const auto &[bytes, events] : cases)
        EXPECT_EQ(file_events_parse(bytes), events) << bytes.size();
}

class FileWatcher : public fake::TPlatformTest {
protected:
    static size_t descriptors()
    {
        return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
    }
    void replace() const
    {
        write_file(file + ".new", "b");
        std::filesystem::rename(root() + file + ".new", root() + file);
    }
    bool sees_a_write()
    {
        changes = 0;
        write_file(file, "rewritten in place");
        tick();
        return changes > 0;
    }
    /* What a tick of the second does. */
    void tick()
    {
        if (watcher.is_due())
            watcher.run();
    }
    int changes = 0;
    TFileWatcher watcher{"/tarn/etc/config/Tarnix.conf", [this] { ++changes; }};
    const std::string file = "/tarn/etc/config/Tarnix.conf";
    const std::string cannot = "sysstat_servername.cpp:regsiter_notify (106) Cannot watch '" + file + "'.";
};

TEST_F(FileWatcher, SurvivesEveryWayOfReplacingTheFile)
{
    testing::internal::CaptureStdout();
    tick(); // nothing there yet
    EXPECT_EQ(log_text(kLogServerName), cannot + cannot + "sysstat_servername.cpp:run (177) regsiter_notify failed.");
    write_file(file, "a");
    tick();
    EXPECT_EQ(changes, 0);
    const size_t before = descriptors();
    for (int i = 0; i < 5; ++i) { // the kernel takes its time to forget a watched file
        EXPECT_TRUE(sees_a_write());
        replace();
        tick(); // sees the old one go
        tick(); // watches the new one
        EXPECT_TRUE(sees_a_write());
        std::filesystem::remove(root() + file);
        tick();
        tick();                      // cannot watch
        watcher.unregsiter_notify(); // nothing
        EXPECT_LT(descriptors(), before);
        write_file(file, "d");
        tick();
    }
    EXPECT_EQ(descriptors(), before);
    for (int i = 0; i < 2; ++i)
        watcher.unregsiter_notify();
    EXPECT_FALSE(sees_a_write());
    EXPECT_NE(testing::internal::GetCapturedStdout().find(" [file]\n"), std::string::npos);
    EXPECT_EQ(log_text(kLogServerName).find("removing watch"), std::string::npos);
    watcher.run(); // watches again
    std::filesystem::remove(root() + file);
    watcher.unregsiter_notify();
    const std::string failed = "sysstat_servername.cpp:unregsiter_notify (122) removing watch '" + file + "' failed.";
    EXPECT_EQ(log_text(kLogServerName).find(failed) + failed.size(), log_text(kLogServerName).size());
}

TEST_F(FileWatcher, FollowsThePathWhereTheOldFileLivesOn)
{
    testing::internal::CaptureStdout();
    write_file(file, "a");
    tick();
    std::filesystem::rename(root() + file, root() + file + ".old");
    tick();
    EXPECT_EQ(changes, 0); // there is nothing else yet
    write_file(file, "b");
    tick();
    EXPECT_EQ(changes, 1); // the change itself was missed
    std::filesystem::create_hard_link(root() + file, root() + file + ".backup");
    tick();
    replace();
    tick();
    for (int i = 0; i < 3; ++i)
        tick();            // once
    EXPECT_LE(changes, 4); // the link, the loss of the name, the other file
    EXPECT_TRUE(sees_a_write());
    EXPECT_FALSE(watcher.is_due()); // nothing is new
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(log_text(kLogServerName), "");
}

TEST_F(FileWatcher, DescribesEachEventBeforeItIsHandledAndHandlesAgainWhatThrew)
{
    bool is_throwing = false;
    TFileWatcher printing(file, [&] {
        write_stdout("handled\n");
        if (std::exchange(is_throwing, false))
            throw std::bad_alloc();
    });
    write_file(file, "a");
    printing.run();
    testing::internal::CaptureStdout();
    ASSERT_EQ(chmod((root() + file).c_str(), 0600), 0);
    write_file(file, "b");
    is_throwing = true;
    EXPECT_THROW(printing.run(), std::bad_alloc);
    printing.run();
    ASSERT_EQ(chmod((root() + file).c_str(), 0600), 0);
    write_file(file, "b");
    printing.run();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " [file]\nhandled\n" // the second went with the first
                                                      "handled\n"
                                                      " [file]\nhandled\n [file]\nhandled\n");
}

class ServerName : public fake::TPlatformTest {};

TEST_F(ServerName, ThreeFailuresAreAnEmptyNameAndAFailedSendIsDropped)
{
    fake::state()->syssetting.server_name = "first";
    servername_changed();
    do_handling();
    EXPECT_TRUE(fake::state()->requests.empty());
    EXPECT_EQ(fake::state()->syssetting_calls, 2);
    fake::state()->syssetting_result = 0xAB;
    do_handling(); // every request fails
    fake::state()->auth_result = 0xCD;
    do_handling();
    EXPECT_EQ(fake::state()->syssetting_calls, 5);
    const auto requests = fake::state()->requests;
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(std::tie(requests[0].host, requests[0].port, requests[0].body, requests[0].timeout_s),
              std::tuple("127.0.0.1", 10150, R"({"act":"refresh_nasname","arg":[""]})", 5));
    EXPECT_EQ(log_text(kLogSmart), "sysstat_servername.cpp:do_handling (342) ssci_PUT_request failed (3)\n");
    const std::string failure = "get_cur_servername(301), PAL_system_get_syssetting failed,  ret=[000000ab]";
    const std::string denied = "get_cur_servername(294), PAL_auth_get_auth failed,  ret=[000000cd]";
    EXPECT_EQ(log_text(kLogServerName), failure + failure + failure + denied + denied + denied);
}

TEST_F(ServerName, ANewNameIsSentWholeAlsoWhenAStopComesMeanwhile)
{
    bool interrupted = false;
    fake::state()->syssetting.server_name = "same";
    int looks = 0;
    fake::on_wait([&looks](vos_cond_t *, int) { // behind the first look, which stores the name
        fake::state()->syssetting.server_name = ++looks == 1 ? "same" : std::string(300, 'n');
        write_file("/tarn/etc/config/Tarnix.conf", "new");
    });
    fake::state()->request = [&](const fake::TRequest &, std::string *) {
        while (fake::state()->cond_signals == 0) // until the stop is asked for
            std::this_thread::yield();
        interrupted = platform_interrupted();
        return 0;
    };
    write_file("/tarn/etc/config/Tarnix.conf", "");
    testing::internal::CaptureStdout();
    servername_thread_start();
    while (fake::state()->requests.empty())
        std::this_thread::yield();
    fake::stderr_of(servername_thread_stop);
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(interrupted);
    ASSERT_EQ(fake::state()->requests.size(), 1U);
    EXPECT_EQ(fake::state()->requests[0].path, "logs/refreshNasPara");
    EXPECT_EQ(fake::state()->requests[0].body.size(), 255U);
    EXPECT_EQ(log_text(kLogSmart), "");
}

} // namespace
