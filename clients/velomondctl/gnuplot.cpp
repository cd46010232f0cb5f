#include "velomondctl/gnuplot.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t kMaxSvg = 8U << 20;

class TFd {
public:
    explicit TFd(int fd) : m_fd(fd) {}
    ~TFd() { reset(); }
    TFd(const TFd &) = delete;
    TFd &operator=(const TFd &) = delete;
    int get() const { return m_fd; }
    void reset()
    {
        if (m_fd >= 0)
            (void)close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd;
};

TOutcome failed(const char *what)
{
    return failure(TFault::kInternal, std::string(what) + ": " + strerror(errno));
}

/* Reads to the end; false on a time-out or if the output is too large. */
bool read_all(int fd, std::chrono::steady_clock::time_point deadline, std::string *out)
{
    std::array<char, 65536> block{};
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd wait = {fd, POLLIN, 0};
        const int ready = poll(&wait, 1, static_cast<int>(std::max<int64_t>(left.count(), 0)));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0 || out->size() > kMaxSvg)
            return false;
        const ssize_t count = read(fd, block.data(), block.size());
        if (count <= 0)
            return count == 0;
        out->append(block.data(), static_cast<size_t>(count));
    }
}

} // namespace

TOutcome gnuplot_draw(const std::string &script, std::chrono::milliseconds timeout, std::string *svg)
{
    TFd input(memfd_create("gnuplot", MFD_CLOEXEC)); // a file: neither side waits for the other
    if (input.get() < 0 || write(input.get(), script.data(), script.size()) != static_cast<ssize_t>(script.size()) ||
        lseek(input.get(), 0, SEEK_SET) != 0)
        return failed("cannot write the script");
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return failed("cannot create a pipe");
    TFd from(ends[0]);
    TFd into(ends[1]);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, into.get(), STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::array<std::string, 2> words = {"gnuplot", "-d"}; // no start files of the user's
    std::array<char *, 3> arguments = {words[0].data(), words[1].data(), nullptr};
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, "gnuplot", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT)
        return failure(TFault::kNotFound, "gnuplot is not installed (package gnuplot-nox)");
    if (error != 0)
        return failure(TFault::kInternal, std::string("cannot start gnuplot: ") + strerror(error));
    into.reset();

    std::string drawn;
    const bool whole = read_all(from.get(), std::chrono::steady_clock::now() + timeout, &drawn);
    if (!whole)
        (void)kill(pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!whole)
        return failure(TFault::kTimeout, "gnuplot timed out");
    if (status != 0 || drawn.find("</svg>") == std::string::npos)
        return failure(TFault::kInternal, "gnuplot failed");
    *svg = std::move(drawn);
    return {};
}
