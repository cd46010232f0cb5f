#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "base/thread.h"
#include "platform/descriptor_limit.h"
#include "platform/kestrel.h"
#include "platform/raw_socket.h"
#include "platform/stock/process/child_process.h"
#include "platform/stock_root.h"
#include "platform/stop_soon.h"
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
        std::string text(size_t{2} << 20, '\0');
        text.resize(stream != nullptr ? fread(text.data(), 1, text.size(), stream) : 0);
        m_result = kestrel_pclose(stream);
        return text;
    }
    int m_result = 0;
};

TEST_F(ChildProcess, ReportsHowItEndedAndNotWhenSigchldIsIgnored)
{
    const TSignalsHeld held; // in this process, not in the child
    const auto before = signal(SIGHUP, SIG_IGN);
    /* "exit 0" is not the first: a child that ran in this test's place would pass. */
    for (const auto &[script, result] : {std::pair("exit 255", 255), {"exit 0", 0}, {"kill -HUP $$", 128 + SIGHUP}}) {
        EXPECT_EQ(output(script), "");
        EXPECT_EQ(m_result, result) << script;
    }
    (void)signal(SIGHUP, before);
    EXPECT_EQ(child_run({kShell, "-c", "exit 5"}, {5, 0, 0, 0}, nullptr), 5); // only stuck ones count
    EXPECT_EQ(kestrel_exec(0, 0, 0, "/nowhere/program", nullptr), -ENOENT);
    EXPECT_EQ(kestrel_exec(0, 0, 0, "/etc/passwd", nullptr), -EACCES);
    EXPECT_EQ(kestrel_popen("/", nullptr), nullptr);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(kestrel_pclose(nullptr), -EINVAL); // without a child to wait for
    (void)signal(SIGCHLD, SIG_IGN);              // as some parents leave it set
    (void)output("exit 0");
    (void)signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(m_result, -ECHILD);
}

TEST_F(ChildProcess, GetsItsArgumentsUnchangedNoDescriptorAndAUmaskOfItsOwn)
{
    const mode_t before = umask(0);
    const TFd open_end(open("/dev/null", O_RDONLY)); // deliberately not close-on-exec
    const TFd next(dup(open_end.get())), copy(fcntl(open_end.get(), F_DUPFD, 50));
    EXPECT_EQ(
        output("printf '<%s>' \"$@\"; echo err >&2; i=3; while [ $i -lt 64 ]; do [ -e /proc/self/fd/$i ] && echo $i; "
               "i=$((i + 1)); done; umask"),
        "<a b><\"'$(id);*><><-x\n>0022\n");
    EXPECT_EQ(umask(before), 0U) << "the process has another one";
}

TEST_F(ChildProcess, IsKilledBeyondItsLimitsAndNotWaitedForBeyondItsEnd)
{
    const TAtMost limit(4000); // the last one alone may take a second
    EXPECT_EQ(output("sleep 20 & printf x"), "x");
    EXPECT_EQ(output("head -c 1048576 /dev/zero; sleep 0.02; printf x; sleep 20").size(), 1024U * 1024U + 1);
    EXPECT_EQ(m_result, -EFBIG);
    EXPECT_EQ(output("head -c 1048576 /dev/zero").size(), 1024U * 1024U);
    EXPECT_EQ(m_result, 0);
    std::string text;
    EXPECT_EQ(child_run({kShell, "-c", "trap '' TERM; sleep 20 & echo $!; wait"}, {1, 100, 0}, &text), -ETIMEDOUT);
    const auto is_running = [path = "/proc/" + text.substr(0, text.find('\n')) + "/stat"] {
        std::string stat;
        std::getline(std::ifstream(path), stat);
        return !stat.empty() && stat.find(") Z ") == std::string::npos;
    };
    while (is_running()) // what it has started goes with it
        std::this_thread::yield();
    const auto tool = [] { return kestrel_exec(0, 0, 0, kShell, "-c", "sleep 0.01; exit 9", nullptr); };
    EXPECT_EQ(((void)TToolTimeLimit(-1), tool()), -ETIMEDOUT);
    EXPECT_EQ(tool(), 9);
}

TEST_F(ChildProcess, RunsWithoutAFreeDescriptor)
{
    testing::internal::CaptureStderr();
    const TFd last(dup(STDERR_FILENO));
    const rlim_t usual = limit_descriptors(static_cast<rlim_t>(last.get()) + 1);
    for (const int result : {3, 127}) {
        EXPECT_EQ(kestrel_exec(0, 0, 0, kShell, "-c", "exit 3", nullptr), result);
        EXPECT_TRUE(kestrel_popen(kShell, nullptr) == nullptr && errno == EMFILE);
        EXPECT_EQ(TCallWait().wait_ms(101), 100);
        limit_descriptors(0); // next, not even the standard streams can be opened
    }
    limit_descriptors(usual);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), ""); // a program is not run without its standard input
    EXPECT_EQ(TCallWait().wait_ms(3'600'001), 3'600'000);
}

TEST_F(ChildProcess, IsKilledSoonAfterItsCallerIsAskedToStop)
{
    const TStopSoon stop;
    const TAtMost limit(1500);
    const char *const leaves_its_group = "exec perl -e 'setpgrp(0, getpgrp(getppid)); sleep 20'";
    EXPECT_EQ(child_run({kShell, "-c", leaves_its_group}, {60, 0, 200}, nullptr), -EINTR);
    EXPECT_EQ(kestrel_exec(0, 0, 0, kShell, "-c", "sleep 0.1; exit 4", nullptr), 4); // within the grace
    EXPECT_EQ(child_run({kShell, "-c", "exit 5"}, {60, 0, 200}, nullptr), -EINTR);   // used up by the first child
}

/* Attaches to the processes whose ids it reads: a traced process remains, even dead, until its tracer is gone. */
[[noreturn]] void trace(const char *ids_pipe)
{
    std::fstream ids(g_stock_root.real(ids_pipe)); // for writing too, so that it has no end
    for (pid_t pid = 0; ids >> pid;)
        (void)ptrace(PTRACE_SEIZE, pid, nullptr, nullptr);
    _exit(1);
}

TEST_F(ChildProcess, ThatCannotDieIsOneOfFourPerProgramOrTheOnlyOneWithItsArguments)
{
    constexpr const char *kTool = "/usr/bin/stuck", *kOther = "/usr/bin/other";
    g_stock_root.remove("/stuck");
    g_stock_root.folder("/stuck");
    ASSERT_EQ(mkfifo(g_stock_root.real("/stuck/ids").c_str(), 0600), 0);
    for (const char *tool : {kTool, kOther})
        g_stock_root.tool(tool, "cd $VELOMOND_ROOT/stuck; [ -e free ] && exit 7\necho $$ >ids\n"
                                "while grep -q 'TracerPid:.0$' /proc/$$/status; do :; done; exec /bin/sleep 60\n");
    const pid_t tracer = fork();
    if (tracer == 0)
        trace("/stuck/ids");
    const auto run = [](const char *argument) { return child_run({kTool, argument}, {1, 0, 0}, nullptr); };
    std::vector<std::thread> callers;
    for (const char *argument : {"1", "2", "3", "4"})
        callers.emplace_back([&run, argument] { EXPECT_EQ(run(argument), -ETIMEDOUT); });
    const TToolTimeLimit one_of_each(1);
    EXPECT_EQ(kestrel_exec(0, 0, 0, kOther, "backup", nullptr), -ETIMEDOUT);
    for (std::thread &one : callers)
        one.join();
    const TAtMost limit(900); // a killed child that does not die takes a second
    testing::internal::CaptureStderr();
    for (const char *argument : {"5", "6"})
        EXPECT_EQ(run(argument), -EBUSY);
    EXPECT_EQ(kestrel_exec(0, 0, 0, kOther, "backup", nullptr), -EBUSY);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "/usr/bin/stuck not started: too many earlier ones hang and cannot be killed\n"
              "/usr/bin/stuck not started: too many earlier ones hang and cannot be killed\n"
              "/usr/bin/other not started: too many earlier ones hang and cannot be killed\n");
    g_stock_root.write("/stuck/free", "");
    EXPECT_EQ(kestrel_exec(0, 0, 0, kOther, "backup", "-c", nullptr), 7);
    EXPECT_EQ(kestrel_exec(0, 0, 0, kShell, "-c", "exit 3", nullptr), 3);
    kill(tracer, SIGKILL);
    waitpid(tracer, nullptr, 0);
    while (run("5") != 7 || kestrel_exec(0, 0, 0, kOther, "backup", nullptr) != 7 || waitpid(-1, nullptr, WNOHANG) >= 0)
        std::this_thread::yield();
}

TEST(ConditionWait, KeepsOneSignalForTheNextWait)
{
    vos_cond_t cond;
    ASSERT_EQ(vos_cond_wait_init(&cond, 1), 0);
    EXPECT_EQ(vos_cond_wait_signal(&cond), 0);
    EXPECT_EQ(vos_cond_wait_signal(&cond), 0);
    EXPECT_EQ(vos_cond_wait(&cond, 0), 0);
    EXPECT_EQ(vos_cond_wait(&cond, 0), ETIMEDOUT);
}

} // namespace
