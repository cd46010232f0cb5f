#include "core/stop_watch.h"

#include <chrono>
#include <unistd.h>

#include "base/thread.h"
#include "common/trace.h"
#include "common/worker.h"
#include "platform/time_stamp.h"

namespace {

constexpr auto kLook = std::chrono::milliseconds(250);

} // namespace

bool stop_hangs(TStopProgress *seen, uint64_t moves, uint64_t now_ms)
{
    if (seen->since_ms == 0 || seen->moves != moves)
        *seen = {moves, now_ms};
    return now_ms - seen->since_ms >= kStopHangMs;
}

TStopWatch::TStopWatch()
{
    const auto entry = [](void *self) -> void * {
        static_cast<TStopWatch *>(self)->watch();
        return nullptr;
    };
    const int error = thread_create(kJoinable, entry, this, &m_thread);
    m_created = error == 0;
    if (error != 0)
        write_stderr("the stop is not watched: pthread_create failed (%d)\n", error);
}

TStopWatch::~TStopWatch()
{
    {
        const TLock guard(m_lock);
        m_done = true;
    }
    m_changed.notify_all();
    if (m_created)
        pthread_join(m_thread, nullptr);
}

void TStopWatch::step(const char *name)
{
    m_step = name;
    ++m_steps;
}

void TStopWatch::watch()
{
    TStopProgress seen;
    const TLock guard(m_lock);
    while (!m_done) {
        m_changed.wait_for(m_lock, kLook);
        if (m_done || !stop_hangs(&seen, m_steps + worker_progress(), current_time_stamp_mono_r()))
            continue;
        write_stderr("%s hangs: the stop ends without it\n", m_step.load());
        _exit(0);
    }
}
