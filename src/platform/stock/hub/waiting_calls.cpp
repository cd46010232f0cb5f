#include "platform/stock/hub/waiting_calls.h"

#include <utility>

int TWaitingCalls::start(const char *thread_name)
{
    {
        const std::lock_guard<std::mutex> guard(m_lock);
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
        const std::lock_guard<std::mutex> guard(m_lock);
        m_open = false;
        m_changed.notify_all();
    }
    m_thread.stop();
}

bool TWaitingCalls::add(T_CALL call, const std::function<void()> &taken)
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (!m_open || m_calls.size() >= m_most)
        return false;
    m_calls.push_back(std::move(call));
    taken();
    m_changed.notify_all();
    return true;
}

void TWaitingCalls::run()
{
    std::unique_lock<std::mutex> lock(m_lock);
    for (;;) {
        m_changed.wait(lock, [this] { return !m_open || !m_calls.empty(); });
        if (m_calls.empty())
            return;
        const T_CALL call = std::move(m_calls.front());
        m_calls.pop_front();
        const T_TURN turn = m_open ? kRun : kDropped;
        lock.unlock();
        call(turn);
        lock.lock();
    }
}
