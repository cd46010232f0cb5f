#include "platform/stock/hub/notice_sender.h"

#include <chrono>
#include <exception>
#include <utility>

#include "platform/interrupt.h"
#include "platform/logging.h"

TNoticeSender::TNoticeSender(THttpPeer hub, const TNoticeLimits &limits) : m_hub(std::move(hub)), m_limits(limits) {}

TNoticeSender::~TNoticeSender()
{
    {
        const TLock guard(m_lock);
        m_ending = true;
        m_changed.notify_all();
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(m_limits.farewell_ms);
        while (m_started && !m_ended && m_changed.wait_until(m_lock, end)) {
        }
        if (!m_queue.empty())
            log_Debug("%zu notices dropped: the hub did not accept them in time", m_queue.size());
        m_give_up = true;
    }
    m_thread.stop(); // wakes its call
}

int TNoticeSender::send(std::string notice)
{
    const TLock guard(m_lock);
    if (!m_started) {
        if (const int error = m_thread.start("SSCI-notices", [this] { deliver(); }); error != 0)
            return error;
        m_started = true;
    }
    if (!m_queue.empty() && m_queue.back() == notice)
        return 0;
    if (m_queue.size() >= m_limits.queued) {
        log_Debug("notice dropped, %zu are queued for the hub: %s", m_queue.size(), m_queue.front().c_str());
        m_queue.pop_front();
    }
    m_queue.push_back(std::move(notice));
    m_changed.notify_all();
    return 0;
}

void TNoticeSender::deliver()
{
    platform_interrupt_on(&m_give_up); // a stop does not cancel the current call at once
    TLock lock(m_lock);
    for (;;) {
        while (!m_ending && m_queue.empty())
            m_changed.wait(m_lock);
        if (m_queue.empty() || m_give_up)
            break;
        const std::string notice = std::move(m_queue.front());
        m_queue.pop_front();
        lock.unlock();
        post(notice);
        lock.lock();
    }
    m_ended = true;
    m_changed.notify_all();
}

void TNoticeSender::post(const std::string &notice) const
{
    try {
        (void)http_call({"POST", m_hub, "/notify/notices", &notice, m_limits.call_ms});
    } catch (const std::exception &failure) {
        log_Debug("notice dropped: %s", failure.what());
    }
}
