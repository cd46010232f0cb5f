#include "platform/stock/child_process.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <map>
#include <mutex>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "platform/fd.h"
#include "platform/host_path.h"
#include "platform/interrupt.h"
#include "platform/time_stamp.h"

namespace {

constexpr int kPollSliceMs = 100; // how soon a request to stop is seen
constexpr int kDyingTries = 100;  // looks at a killed child, 10 ms apart
constexpr auto kDyingPause = std::chrono::milliseconds(10);
constexpr size_t kReadChunk = size_t{64} * 1024;

/* Whether the calling thread has been asked to stop for that long. Its children
 * share the time: what one took of it, the next has no more. */
bool grace_is_over(uint64_t grace_ms)
{
    thread_local uint64_t asked_ms = 0; // 0: not asked
    const uint64_t now_ms = current_time_stamp_mono_r();
    if (!platform_interrupted())
        asked_ms = 0;
    else if (asked_ms == 0)
        asked_ms = now_ms;
    return asked_ms != 0 && now_ms >= asked_ms + grace_ms;
}

/* Children that were killed and have not died: in the kernel, waiting for a
 * device that does not answer. They are not waited for, and no other child with
 * the same arguments joins them. */
class TUndead {
public:
    void add(pid_t pid, std::string command)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_commands.emplace(pid, std::move(command));
    }
    /* Reaps those that have died since. */
    bool has(const std::string &command)
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        std::erase_if(m_commands, [](const auto &one) { return waitpid(one.first, nullptr, WNOHANG) != 0; });
        return std::any_of(m_commands.begin(), m_commands.end(),
                           [&](const auto &one) { return one.second == command; });
    }

private:
    std::mutex m_lock;
    std::map<pid_t, std::string> m_commands; // guarded by m_lock
};
TUndead &undead()
{
    static auto &one = *new TUndead; // threads that nobody waits for may still ask at exit
    return one;
}

std::string command_of(const std::vector<const char *> &argv)
{
    std::string text;
    for (const char *argument : argv)
        text.append(argument).push_back('\0');
    return text;
}

/* Takes the exit of a child that has ended or was killed. 0; the error when there
 * is nothing to take, EAGAIN when it lives on. */
int reap(pid_t pid, int *status)
{
    for (int i = 0; i < kDyingTries; ++i) {
        const pid_t reaped = waitpid(pid, status, WNOHANG);
        if (reaped == pid)
            return 0;
        if (reaped < 0 && errno != EINTR)
            return errno;
        std::this_thread::sleep_for(kDyingPause);
    }
    return EAGAIN;
}

/* Attributes and file actions of a spawn, released with the scope. */
class TSpawnPlan {
public:
    TSpawnPlan()
    {
        posix_spawn_file_actions_init(&m_actions);
        posix_spawnattr_init(&m_attributes);
        sigset_t set;
        sigemptyset(&set);
        posix_spawnattr_setsigmask(&m_attributes, &set);
        sigfillset(&set);
        posix_spawnattr_setsigdefault(&m_attributes, &set);
        posix_spawnattr_setpgroup(&m_attributes, 0);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    ~TSpawnPlan()
    {
        posix_spawn_file_actions_destroy(&m_actions);
        posix_spawnattr_destroy(&m_attributes);
    }
    TSpawnPlan(const TSpawnPlan &) = delete;
    TSpawnPlan &operator=(const TSpawnPlan &) = delete;

    void take_output(int pipe_end)
    {
        posix_spawn_file_actions_adddup2(&m_actions, pipe_end, STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&m_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }

    /* 0 or an error number. */
    int spawn(const std::vector<const char *> &argv, pid_t *pid)
    {
        posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1);
        std::vector<char *> texts;
        texts.reserve(argv.size() + 1);
        for (const char *text : argv)
            texts.push_back(const_cast<char *>(text)); // posix_spawn does not write to them
        texts.push_back(nullptr);
        return posix_spawn(pid, host_path(argv[0]).c_str(), &m_actions, &m_attributes, texts.data(), environ);
    }

private:
    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
};

/* Moves what the pipe holds now into *output. False at its end. */
bool drain(int pipe_end, std::string *output, size_t max_output)
{
    char chunk[kReadChunk];
    while (output->size() <= max_output) {
        const ssize_t got = read(pipe_end, chunk, sizeof(chunk));
        if (got > 0)
            output->append(chunk, static_cast<size_t>(got));
        else
            return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
    return true;
}

/* Waits for the child's end, taking its output. 0, or why it must be killed. */
int watch_child(pid_t pid, const T_CHILD_LIMITS &limits, int pipe_end, std::string *output)
{
    const uint64_t deadline = current_time_stamp_mono_r() + static_cast<uint64_t>(limits.timeout_s) * 1000;
    /* The C library's own wrapper cannot be linked from C++ on this distribution. */
    const TFd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    for (;;) {
        struct pollfd waits[2] = {{pidfd.get(), POLLIN, 0}, {pipe_end, POLLIN, 0}};
        (void)poll(waits, 2, kPollSliceMs);
        siginfo_t ended = {};
        const bool gone = waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0
                              ? ended.si_pid == pid
                              : errno == ECHILD; // SIGCHLD is ignored, which our parent may have left us
        if (pipe_end >= 0 && !drain(pipe_end, output, limits.max_output))
            pipe_end = -1;
        if (output != nullptr && output->size() > limits.max_output)
            return -EFBIG;
        if (gone)
            return 0;
        if (current_time_stamp_mono_r() >= deadline)
            return -ETIMEDOUT;
        if (grace_is_over(limits.stop_grace_ms))
            return -EINTR;
    }
}

} // namespace

int child_run(const std::vector<const char *> &argv, const T_CHILD_LIMITS &limits, std::string *output)
{
    if (grace_is_over(limits.stop_grace_ms))
        return -EINTR;
    std::string command = command_of(argv);
    if (undead().has(command))
        return -EBUSY;
    TFd reading, writing;
    TSpawnPlan plan;
    if (output != nullptr) {
        output->reserve(limits.max_output + kReadChunk); // later there would be a child to clean up
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0)
            return -errno;
        reading = TFd(ends[0]);
        writing = TFd(ends[1]);
        (void)fcntl(reading.get(), F_SETFL, O_NONBLOCK);
        plan.take_output(writing.get());
    }
    pid_t pid = -1;
    if (const int error = plan.spawn(argv, &pid); error != 0)
        return -error;
    writing = TFd(); // ours would keep the pipe from ending

    const int killed_for = watch_child(pid, limits, reading.get(), output);
    if (killed_for != 0) {
        (void)kill(-pid, SIGKILL);
        (void)kill(pid, SIGKILL); // it may have left its group
    }
    int status = 0;
    const int error = reap(pid, &status);
    if (error == EAGAIN)
        undead().add(pid, std::move(command));
    if (killed_for != 0)
        return killed_for;
    if (error != 0)
        return -error;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
