#include "base/log_stream.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

namespace {

static_assert(kLogStreamMost <= PIPE_BUF);

/* One lock for both streams, which may be the same pipe. Nobody sleeps with it but
 * in a write that a foreign process got in the way of, and then the others drop
 * their lines rather than wait with it. */
constexpr int kWritingSignals[] = {SIGINT, SIGTERM, SIGHUP}; // and those of a crash, after which nothing waits
constexpr int kYields = 64;
constexpr int kPauses = 50; // of 1 ms each
std::atomic<bool> g_busy{false};
std::atomic<uint64_t> g_dropped[2]; // for standard output, for standard error
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free,
              "signal handlers touch them");

/* Whether a signal for which there is a handler that writes may interrupt the calling
 * thread. They are the main thread's; all others are born with them blocked and stay
 * so, which is asked once. */
bool takes_signals()
{
    static thread_local const bool taken = [] {
        sigset_t blocked = {};
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        const bool all =
            std::ranges::all_of(kWritingSignals, [&blocked](int signal) { return sigismember(&blocked, signal) == 1; });
        return !all || gettid() == getpid();
    }();
    return taken;
}

/* Holds the lock, with all signals held back: a handler of this thread would wait
 * for the very thread that it interrupted. */
class TStreamLock {
public:
    TStreamLock()
    {
        if (m_takes_signals) {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_SETMASK, &all, &m_before);
        }
        for (int i = 0; !m_held && i < kYields + kPauses; ++i) {
            m_held = !g_busy.exchange(true, std::memory_order_acquire);
            if (!m_held && i < kYields)
                (void)sched_yield();
            else if (!m_held)
                (void)poll(nullptr, 0, 1);
        }
    }
    ~TStreamLock()
    {
        if (m_held)
            g_busy.store(false, std::memory_order_release);
        if (m_takes_signals)
            pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    TStreamLock(const TStreamLock &) = delete;
    TStreamLock &operator=(const TStreamLock &) = delete;

    bool is_held() const { return m_held; }

private:
    const bool m_takes_signals = takes_signals();
    sigset_t m_before = {};
    bool m_held = false;
};

/* A writable pipe has room for PIPE_BUF bytes; files are always writable, and a write to a broken stream fails at
 * once. */
bool has_room(int fd)
{
    struct pollfd one = {fd, POLLOUT, 0};
    return poll(&one, 1, 0) > 0;
}

bool write_whole(int fd, const char *text, size_t length)
{
    return has_room(fd) && write(fd, text, length) == static_cast<ssize_t>(length);
}

/* Called with the lock held. Writes the number of dropped lines, if any, and the text; in one write where both fit,
 * since the last free page of a pipe would take only the number. */
bool write_with_count(int fd, const char *text, size_t length, std::atomic<uint64_t> *dropped)
{
    const uint64_t count = dropped->load();
    if (count == 0)
        return write_whole(fd, text, length);
    char both[kLogStreamMost] = "log lines dropped: ";
    char *end = std::to_chars(both + strlen(both), std::end(both), count).ptr;
    *end++ = '\n';
    const bool together = length <= static_cast<size_t>(std::end(both) - end);
    if (together)
        end = std::copy_n(text, length, end);
    if (!write_whole(fd, both, static_cast<size_t>(end - both)))
        return false;
    *dropped -= count; // threads that did not get the lock may have dropped lines meanwhile
    return together || write_whole(fd, text, length);
}

/* `write_once` receives the counter of dropped lines and returns whether it wrote. */
template <typename TWrite> bool write_or_drop(int fd, TWrite write_once)
{
    const int error = errno; // an interrupted thread may be about to read it
    std::atomic<uint64_t> &dropped = g_dropped[fd == STDOUT_FILENO ? 0 : 1];
    const TStreamLock lock;
    const bool written = lock.is_held() && write_once(&dropped);
    if (!written)
        ++dropped;
    errno = error;
    return written;
}

} // namespace

bool log_stream_write(int fd, const char *text, size_t length)
{
    return write_or_drop(fd, [=](std::atomic<uint64_t> *dropped) {
        return write_with_count(fd, text, std::min(length, kLogStreamMost), dropped);
    });
}

bool log_stream_call(int fd, void (*write_once)(int fd, void *argument), void *argument)
{
    return write_or_drop(fd, [=](std::atomic<uint64_t> *dropped) {
        if (!write_with_count(fd, "", 0, dropped) || !has_room(fd))
            return false;
        write_once(fd, argument);
        return true;
    });
}
