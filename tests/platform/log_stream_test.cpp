#include "base/log_stream.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "base/fd.h"
#include "platform/diag.h"
#include "platform/logging.h"

namespace {

bool write_to_stderr(std::string_view text)
{
    return log_stream_write(STDERR_FILENO, text.data(), text.size());
}

/* Standard error is a pipe of the smallest size, which only the test reads. */
class LogStream : public testing::Test {
protected:
    LogStream()
    {
        int ends[2] = {};
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        m_read_end = TFd(ends[0]);
        m_before = TFd(dup(STDERR_FILENO));
        EXPECT_GE(fcntl(ends[1], F_SETPIPE_SZ, 4096), 4096);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        alarm(60); // ends the program where a writer waits
    }
    ~LogStream() override
    {
        (void)read_all();
        (void)write_to_stderr("\n"); // writes a count that would appear in the next test
        dup2(m_before.get(), STDERR_FILENO);
        alarm(0);
    }

    std::string read_all()
    {
        char text[65536];
        const ssize_t length = read(m_read_end.get(), text, sizeof(text));
        return {text, static_cast<size_t>(std::max<ssize_t>(length, 0))};
    }
    static void fill()
    {
        for (int i = 0; i < 100 && write_to_stderr(std::string(4096, 'f')); ++i) {
        }
    }

    TFd m_read_end, m_before;
};

TEST_F(LogStream, DropsWhatWouldWaitAndReportsTheCountBeforeTheNextText)
{
    log_Debug("%s", "\n");
    EXPECT_EQ(read_all(), "\n");
    const auto call = [] {
        return log_stream_call(
            STDERR_FILENO, [](int fd, void *) { (void)!write(fd, "b\n", 2); }, nullptr);
    };
    fill(); // its last write is dropped too
    log_Debug("a %d", 1);
    EXPECT_FALSE(call());
    EXPECT_EQ(read_all().find_first_not_of('f'), std::string::npos);
    log_Debug("c %d", 2);
    EXPECT_EQ(read_all(), "log lines dropped: 3\nc 2\n");
    EXPECT_TRUE(call() && read_all() == "b\n" && write_to_stderr(std::string(5000, 'x')));
    EXPECT_EQ(read_all(), std::string(4096, 'x'));
}

TEST_F(LogStream, ManyWritersAndAHandlerNeverWaitAndNeverMixLines)
{
    constexpr int kThreads = 4;
    constexpr uint64_t kLines = 500, kLine = 3000;
    static std::atomic<uint64_t> by_handler; // lines
    static std::atomic<int> writing;         // threads
    static thread_local bool is_writing;
    by_handler = 0;
    const auto before = signal(SIGUSR1, [](int) {
        EXPECT_FALSE(is_writing);
        (void)write_to_stderr("handler\n");
        ++by_handler;
    });
    const auto write_once = [](int fd, void *text) {
        is_writing = true;
        EXPECT_EQ(++writing, 1);
        (void)raise(SIGUSR1);
        std::this_thread::yield();
        (void)!write(fd, text, kLine);
        --writing;
        is_writing = false;
    };
    std::string text = std::string(kLine - 1, 'w') + "\n"; // the pipe holds one
    std::atomic<uint64_t> to_write = 0;
    std::string got;
    for (const bool is_read : {false, true}) {
        to_write += kThreads * kLines;
        std::vector<std::thread> threads(kThreads);
        for (std::thread &one : threads) {
            one = std::thread([&] {
                for (uint64_t n = 0; n < kLines; ++n, --to_write)
                    (void)log_stream_call(STDERR_FILENO, write_once, text.data());
            });
        }
        while (is_read && to_write > 0)
            got += read_all();
        for (std::thread &one : threads)
            one.join();
    }
    got += read_all();
    EXPECT_TRUE(write_to_stderr("end\n"));
    got += read_all();
    (void)signal(SIGUSR1, before);

    uint64_t seen = 0;
    std::istringstream lines(got);
    for (std::string one; std::getline(lines, one);) {
        const std::string dropped = "log lines dropped: ";
        const bool is_count = one.starts_with(dropped);
        ASSERT_TRUE(is_count || one + "\n" == text || one == "handler" || one == "end") << one;
        seen += is_count ? std::stoull(one.substr(dropped.size())) : 1;
    }
    EXPECT_EQ(seen, uint64_t{2} * kThreads * kLines + by_handler + 1);
}

TEST_F(LogStream, ACrashEndsTheProcessAlsoWhenThePipeIsNotRead)
{
    const std::string program(40, 'v');
    for (const bool is_full : {true, false}) {
        (void)read_all();
        if (is_full)
            fill();
        else
            EXPECT_GE(fcntl(STDERR_FILENO, F_SETPIPE_SZ, 65536), 65536);
        const pid_t child = fork();
        if (child == 0) {
            (void)diag_com_install_siganl_handler(SIGUSR2, program.c_str(), 0);
            (void)raise(SIGUSR2);
            _exit(1);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGUSR2);
    }
    EXPECT_THAT(read_all(),
                testing::MatchesRegex("log lines dropped: 1\n\nv{31}: crash signal 12 in thread velomond_stock_"
                                      "\n([^\n]+\\[0x[0-9a-f]+\\]\n){5,}"));
}

} // namespace
