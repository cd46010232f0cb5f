#include "platform/stock/hub/waiting_calls.h"

#include <utility>

int TWaitingCalls::start(const char *thread_name)
{
    {
        const TLock guard(m_lock);
        m_open = true;
    }
    const int error = m_thread.start(thread_name, [this] { run(); });
    if (error != 0)
        stop();
    return error;
}

void TWaitingCalls::stop()
{
    {
        const TLock guard(m_lock);
        m_open = false;
        m_changed.notify_all();
    }
    m_thread.stop();
}

bool TWaitingCalls::add(TCall call, const std::function<void()> &taken)
{
    const TLock guard(m_lock);
    if (!m_open || m_calls.size() >= m_most)
        return false;
    m_calls.push_back(std::move(call));
    taken();
    m_changed.notify_all();
    return true;
}

void TWaitingCalls::run()
{
    TLock lock(m_lock);
    for (;;) {
        while (m_open && m_calls.empty())
            m_changed.wait(m_lock);
        if (m_calls.empty())
            return;
        const TCall call = std::move(m_calls.front());
        m_calls.pop_front();
        const TTurn turn = m_open ? kRun : kDropped;
        lock.unlock();
        call(turn);
        lock.lock();
    }
}
