#include "core/stop_watch.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <pthread.h>
#include <unistd.h>

#include "common/trace.h"
#include "common/worker.h"
#include "platform/time_stamp.h"

namespace {

constexpr auto kLook = std::chrono::milliseconds(250);

} // namespace

bool stop_hangs(T_STOP_PROGRESS *seen, uint64_t moves, uint64_t now_ms)
{
    if (seen->since_ms == 0 || seen->moves != moves)
        *seen = {moves, now_ms};
    return now_ms - seen->since_ms >= kStopHangMs;
}

TStopWatch::TStopWatch()
{
    sigset_t all, before;
    sigfillset(&all); // signals are the main thread's
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        m_thread = std::thread([this] { watch(); });
    } catch (const std::exception &failure) {
        tell("the stop is not watched: %s\n", failure.what());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TStopWatch::~TStopWatch()
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_done = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}

void TStopWatch::step(const char *name)
{
    m_step = name;
    ++m_steps;
}

void TStopWatch::watch()
{
    T_STOP_PROGRESS seen;
    std::unique_lock<std::mutex> lock(m_lock);
    while (!m_changed.wait_for(lock, kLook, [this] { return m_done; })) {
        if (!stop_hangs(&seen, m_steps + worker_duties(), current_time_stamp_mono_r()))
            continue;
        tell("%s hangs: the stop ends without it\n", m_step.load());
        _exit(0);
    }
}
