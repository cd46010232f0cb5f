#include "platform/stock/process/background_thread.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <utility>

#include "base/thread.h"
#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/stock/process/call_wait.h"

int TBackgroundThread::start(const char *name, std::function<void()> body)
{
    if (m_created)
        return EALREADY;
    m_body = std::move(body);
    m_name = name;
    m_stop = false;
    const int error = thread_create(kJoinable, enter, this, &m_thread);
    m_created = error == 0;
    return error;
}

void TBackgroundThread::request_stop()
{
    const TLock guard(m_lock);
    m_stop = true;
    m_wake.notify_all();
    call_waits_wake();
}

void TBackgroundThread::join()
{
    if (m_created)
        pthread_join(m_thread, nullptr);
    m_created = false;
}

bool TBackgroundThread::wait_ms(uint64_t time_ms)
{
    const TLock guard(m_lock);
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(time_ms);
    if (time_ms > 0 && time_ms % 1000 == 0) // these end as those of vos_cond_wait do
        end = std::chrono::floor<std::chrono::seconds>(end);
    while (!m_stop && !m_woken && m_wake.wait_until(m_lock, end)) {
    }
    m_woken = false;
    return !m_stop;
}

void TBackgroundThread::wake()
{
    const TLock guard(m_lock);
    m_woken = true;
    m_wake.notify_all();
}

void *TBackgroundThread::enter(void *self)
{
    auto *thread = static_cast<TBackgroundThread *>(self);
    thread_set_name(thread->m_name);
    platform_interrupt_on(&thread->m_stop);
    try {
        thread->m_body();
    } catch (const std::exception &failure) {
        log_Debug("%s ended by an exception: %s", thread->m_name, failure.what());
    }
    return nullptr;
}
