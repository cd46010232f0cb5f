#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "platform/interrupt.h"
#include "platform/kestrel.h"
#include "platform/raw_socket.h"
#include "platform/stock/child_process.h"
#include "platform/vos_cond.h"

namespace {

constexpr const char *kShell = "/bin/sh";

class ChildProcess : public testing::Test {
protected:
    ~ChildProcess() override
    {
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child was left";
        EXPECT_EQ(errno, ECHILD);
    }
    std::string output(const char *script)
    {
        FILE *stream = kestrel_popen(kShell, "-c", script, "sh", "a b", "\"'$(id);*", "", "-x\n", nullptr);
        std::string text;
        char chunk[4096];
        for (size_t got; stream != nullptr && (got = fread(chunk, 1, sizeof(chunk), stream)) > 0;)
            text.append(chunk, got);
        m_result = stream != nullptr ? kestrel_pclose(stream) : -1;
        return text;
    }
    int m_result = 0;
};

TEST_F(ChildProcess, TellsHowItEnded)
{
    const struct {
        const char *script;
        int result;
    } cases[] = {{"exit 0", 0}, {"exit 255", 255}, {"kill -TERM $$", 128 + SIGTERM}};
    sigset_t terminate, before;
    sigemptyset(&terminate);
    sigaddset(&terminate, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &terminate, &before); // ours, not the child's
    for (const auto &one : cases) {
        (void)output(one.script);
        EXPECT_EQ(m_result, one.result) << one.script;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    EXPECT_EQ(kestrel_exec(0, 0, 0, "/nowhere/program", nullptr), -ENOENT);
    EXPECT_EQ(kestrel_exec(0, 0, 0, "/etc/passwd", nullptr), -EACCES);
    EXPECT_EQ(kestrel_popen("/", nullptr), nullptr);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(ChildProcess, GetsItsArgumentsAsTheyAreAndNoDescriptor)
{
    const TFd open_end(open("/dev/null", O_RDONLY)); // deliberately not close-on-exec
    const TFd copy(fcntl(open_end.get(), F_DUPFD, 50));
    EXPECT_EQ(
        output("printf '<%s>' \"$@\"; echo err >&2; i=3; while [ $i -lt 64 ]; do [ -e /proc/self/fd/$i ] && echo $i; "
               "i=$((i + 1)); done"),
        "<a b><\"'$(id);*><><-x\n>");
}

TEST_F(ChildProcess, IsKilledBeyondItsLimitsAndNotWaitedForBeyondItsEnd)
{
    const TAtMost limit(4000); // the last one alone has a second
    EXPECT_TRUE(output("sleep 20 & echo on").ends_with("on\n"));
    EXPECT_GT(output("yes").size(), 1024U * 1024U);
    EXPECT_EQ(m_result, -EFBIG);
    EXPECT_EQ(output("head -c 1048576 /dev/zero").size(), 1024U * 1024U);
    EXPECT_EQ(m_result, 0);
    std::string text;
    EXPECT_EQ(child_run({kShell, "-c", "trap '' TERM; echo on; sleep 20; :"}, {1, 100, 0}, &text), -ETIMEDOUT);
    EXPECT_EQ(text, "on\n");
}

TEST_F(ChildProcess, IsKilledSoonAfterTheCallerIsToStop)
{
    const std::atomic<bool> flag{true};
    platform_interrupt_on(&flag);
    const TAtMost limit(1500);
    EXPECT_EQ(child_run({kShell, "-c", "sleep 20"}, {60, 0, 200}, nullptr), -EINTR);
    EXPECT_EQ(kestrel_exec(0, 0, 0, kShell, "-c", "sleep 0.1; exit 4", nullptr), 4); // within the grace
    EXPECT_EQ(child_run({kShell, "-c", "exit 5"}, {60, 0, 200}, nullptr), -EINTR);   // which the first has used up
    platform_interrupt_on(nullptr);
}

TEST_F(ChildProcess, EndsTheWaitAlsoWhereChildrenAreNotToBeReaped)
{
    const auto before = signal(SIGCHLD, SIG_IGN); // as some parents leave it
    EXPECT_EQ(kestrel_exec(0, 0, 0, kShell, "-c", "exit 0", nullptr), -ECHILD);
    (void)signal(SIGCHLD, before);
}

TEST(ConditionWait, KeepsOneSignalForTheNextWait)
{
    for (const int clock : {0, 1}) {
        vos_cond_t cond;
        ASSERT_EQ(vos_cond_wait_init(&cond, clock), 0);
        vos_cond_wait_signal(&cond);
        vos_cond_wait_signal(&cond);
        EXPECT_EQ(vos_cond_wait(&cond, 60), 0);
        EXPECT_EQ(vos_cond_wait(&cond, 0), ETIMEDOUT);
        std::thread waking([&cond] { vos_cond_wait_signal(&cond); });
        EXPECT_EQ(vos_cond_wait(&cond, 60), 0);
        waking.join();
        EXPECT_EQ(vos_cond_wait_destroy(&cond), 0);
    }
}

} // namespace
