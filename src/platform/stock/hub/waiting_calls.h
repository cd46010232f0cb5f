#pragma once

#include <cstddef>
#include <deque>
#include <functional>

#include "base/mutex.h"
#include "platform/stock/process/background_thread.h"

/* Runs calls that may take long, one after the other on a thread of their own. */
class TWaitingCalls {
public:
    enum TTurn { kRun, kDropped };
    using TCall = std::function<void(TTurn)>;

    explicit TWaitingCalls(size_t most) : m_most(most) {}

    /* Returns 0, or an error number. `thread_name` is kept as a pointer. */
    int start(const char *thread_name);

    /* Finishes the current call; all others run as kDropped. */
    void stop();

    /* Appends a call; false, with nothing done, when `most` are queued already or there is no thread. `taken` runs
     * before the call does. Calls must not throw. Any thread may call. */
    bool add(TCall call, const std::function<void()> &taken);

private:
    void run();

    const size_t m_most;
    TMutex m_lock;
    TCondition m_changed;
    std::deque<TCall> m_calls GUARDED_BY(m_lock);
    bool m_open GUARDED_BY(m_lock) = false;
    TBackgroundThread m_thread; // last: it uses the members above
};
