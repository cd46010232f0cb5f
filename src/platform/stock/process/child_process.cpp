#include "platform/stock/process/child_process.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <iterator>
#include <map>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/fd.h"
#include "base/mutex.h"
#include "platform/host_path.h"
#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/stock/process/call_wait.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kBlindLookMs = 100; // without a descriptor for the child
constexpr int kDyingTries = 100;       // checks of a killed child, 10 ms apart
constexpr auto kDyingPause = std::chrono::milliseconds(10);
constexpr size_t kReadChunk = size_t{64} * 1024;
constexpr mode_t kChildUmask = 022;           // the daemon's own is 0
constexpr int kFailureFd = STDERR_FILENO + 1; // in the child
constexpr int kNotStarted = 127;

/* The rest of the grace after a stop request. The children of a thread share it: what one used is gone for the next. */
uint64_t grace_left_ms(uint64_t grace_ms)
{
    return platform_interrupted() ? grace_ms - std::min(grace_ms, call_stop_lasts_ms()) : UINT64_MAX;
}

/* The children by the key by which they are counted: 0 for a running one; the process for one that was killed and has
 * not died, blocked in the kernel by a device that does not answer. These are not waited for. */
struct TChildren {
    TMutex lock;
    std::multimap<std::string, pid_t> places GUARDED_BY(lock);
};
TChildren &children()
{
    static auto &one = *new TChildren; // detached threads may still use it at exit
    return one;
}

/* A place among the children for the duration of one call; a stuck child keeps it. */
class TChildPlace {
public:
    /* Not taken when a child is stuck and the stuck and running ones together reach the limit. Reaps those that have
     * died since. */
    TChildPlace(std::string key, int max_stuck)
    {
        const TLock guard(m_children.lock);
        std::erase_if(m_children.places,
                      [](const auto &one) { return one.second != 0 && waitpid(one.second, nullptr, WNOHANG) != 0; });
        const auto [begin, end] = m_children.places.equal_range(key);
        const bool stuck = std::any_of(begin, end, [](const auto &one) { return one.second != 0; });
        m_held = !stuck || std::distance(begin, end) < max_stuck;
        if (m_held)
            m_place = m_children.places.emplace(std::move(key), 0);
    }
    ~TChildPlace()
    {
        const TLock guard(m_children.lock);
        if (m_held)
            m_children.places.erase(m_place);
    }
    TChildPlace(const TChildPlace &) = delete;
    TChildPlace &operator=(const TChildPlace &) = delete;

    bool is_held() const { return m_held; }
    void keep_for(pid_t stuck)
    {
        const TLock guard(m_children.lock);
        m_place->second = stuck;
        m_held = false;
    }

private:
    TChildren &m_children = children();
    std::multimap<std::string, pid_t>::iterator m_place;
    bool m_held = false;
};

std::string key_of(const std::vector<const char *> &argv, bool by_arguments)
{
    std::string text = argv[0];
    for (size_t i = 1; by_arguments && i < argv.size(); ++i)
        text.append(1, '\0').append(argv[i]);
    return text;
}

/* Collects the exit status of a child that has ended or was killed. Returns 0; the error when there is nothing to
 * collect, EAGAIN while it is alive. */
int reap(pid_t pid, int *status)
{
    for (int i = 0; i < kDyingTries; ++i) {
        const pid_t reaped = waitpid(pid, status, WNOHANG);
        if (reaped == pid)
            return 0;
        if (reaped < 0)
            return errno;
        std::this_thread::sleep_for(kDyingPause);
    }
    return EAGAIN;
}

/* What a child needs, all allocated before the fork. */
struct TLaunch {
    std::string program;
    std::vector<char *> argv; // null-terminated
    int output;               // becomes its standard output; -1: inherits both streams
    int failure;              // receives the error number of a failed start
};

/* Runs in the child, which may only call async-signal-safe functions: locks of the process are copied as they were,
 * without the threads that held them. The caller has blocked all signals, so that no handler of ours runs in the
 * child. */
[[noreturn]] void become(const TLaunch &launch)
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal)
        (void)sigaction(signal, &standard, nullptr); // fails for SIGKILL and SIGSTOP
    (void)setpgid(0, 0);
    (void)umask(kChildUmask);
    /* With all descriptors in use, this order still keeps the needed ones. */
    int failure = launch.failure;
    bool ready = launch.output < 0 || dup2(launch.output, STDOUT_FILENO) >= 0;
    if (failure >= 0 && failure != kFailureFd && dup3(failure, kFailureFd, O_CLOEXEC) >= 0)
        failure = kFailureFd;
    closefrom(failure >= 0 ? failure + 1 : kFailureFd);
    (void)close(STDIN_FILENO);
    ready = ready && open("/dev/null", O_RDWR) == STDIN_FILENO &&
            (launch.output < 0 || dup2(STDIN_FILENO, STDERR_FILENO) >= 0);
    if (ready) {
        sigset_t none;
        sigemptyset(&none);
        (void)sigprocmask(SIG_SETMASK, &none, nullptr);
        (void)execve(launch.program.c_str(), launch.argv.data(), environ);
    }
    const int error = errno;
    (void)!write(failure, &error, sizeof(error));
    _exit(kNotStarted);
}

/* Starts the child. Returns 0 or an error number.
 *
 * Uses fork: before the exec the child only makes async-signal-safe calls. These include umask, which posix_spawn
 * cannot set, and the umask of the process must not change. A child that shares our memory (vfork, clone) would save
 * copying the page tables, a fraction of a millisecond, but what it may do there is not defined; a helper program would
 * have to be installed and found. */
int start(const TLaunch &launch, pid_t *pid)
{
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    *pid = fork();
    const int error = errno;
    if (*pid == 0)
        become(launch);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (*pid < 0)
        return error;
    (void)setpgid(*pid, *pid); // also called in the child: whichever is first
    return 0;
}

/* A pipe with a non-blocking reading end, closed on exec. Returns 0 or an error number. */
int make_pipe(TFd *reading, TFd *writing)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    *reading = TFd(ends[0]);
    *writing = TFd(ends[1]);
    (void)fcntl(reading->get(), F_SETFL, O_NONBLOCK);
    return 0;
}

/* Moves the present contents of the pipe to *output, up to what exceeds the limit. */
void drain(int pipe_end, std::string *output, size_t max_output)
{
    char chunk[kReadChunk];
    while (output->size() <= max_output) {
        const ssize_t got = read(pipe_end, chunk, sizeof(chunk));
        if (got <= 0)
            return;
        output->append(chunk, static_cast<size_t>(got));
    }
}

/* Waits for the child's end and collects its output. Returns 0, or why it must be killed. */
int watch_child(pid_t pid, const TChildLimits &limits, int pipe_end, std::string *output)
{
    const uint64_t deadline_ms = current_time_stamp_mono_r() + static_cast<uint64_t>(limits.timeout_s) * 1000;
    TCallWait wait;
    /* The C library's own wrapper cannot be linked from C++ on this distribution. */
    const TFd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    for (uint64_t left_ms = 0;;) {
        wait.wait({pidfd.get(), pipe_end}, pidfd.is_open() ? left_ms : std::min(left_ms, kBlindLookMs));
        siginfo_t ended = {};
        const bool gone = waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0
                              ? ended.si_pid == pid
                              : errno == ECHILD; // SIGCHLD is ignored, perhaps inherited from our parent
        if (output != nullptr) {
            drain(pipe_end, output, limits.max_output);
            if (output->size() > limits.max_output)
                return -EFBIG;
        }
        if (gone)
            return 0;
        const uint64_t now_ms = current_time_stamp_mono_r();
        if (now_ms >= deadline_ms)
            return -ETIMEDOUT;
        const uint64_t grace_ms = grace_left_ms(limits.stop_grace_ms);
        if (grace_ms == 0)
            return -EINTR;
        left_ms = std::min(deadline_ms - now_ms, grace_ms);
    }
}

} // namespace

int child_run(const std::vector<const char *> &argv, const TChildLimits &limits, std::string *output)
{
    if (grace_left_ms(limits.stop_grace_ms) == 0)
        return -EINTR;
    TChildPlace place(key_of(argv, limits.by_arguments), limits.max_stuck);
    if (!place.is_held()) {
        log_Debug("%s not started: too many earlier ones hang and cannot be killed", argv[0]);
        return -EBUSY;
    }
    TFd reading, writing, failed, failing; // with our writing end open, a child that closes its own does not wake us
    (void)make_pipe(&failed, &failing);    // without it, a failed start shows as an exit status
    int error = 0;
    if (output != nullptr) {
        output->reserve(limits.max_output + kReadChunk); // an exception later would leave the child running
        error = make_pipe(&reading, &writing);
    }
    TLaunch launch = {host_path(argv[0]), {}, writing.get(), failing.get()};
    for (const char *text : argv)
        launch.argv.push_back(const_cast<char *>(text)); // execve does not modify them
    launch.argv.push_back(nullptr);
    pid_t pid = -1;
    if (error == 0)
        error = start(launch, &pid);
    if (error != 0)
        return -error;

    const int killed_for = watch_child(pid, limits, reading.get(), output);
    if (killed_for != 0) {
        (void)kill(-pid, SIGKILL);
        (void)kill(pid, SIGKILL); // it may have left its group
    }
    int status = 0;
    error = reap(pid, &status);
    if (error == EAGAIN)
        place.keep_for(pid);
    if (killed_for != 0)
        return killed_for;
    if (int start_error = 0; read(failed.get(), &start_error, sizeof(start_error)) == sizeof(start_error))
        return -start_error;
    if (error != 0)
        return -error;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
