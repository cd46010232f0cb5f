#include "platform/stock/process/background_thread.h"

#include <cerrno>
#include <exception>
#include <utility>

#include "base/thread.h"
#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/stock/process/wait_deadline.h"

int TBackgroundThread::start(const char *name, std::function<void()> body)
{
    if (m_created)
        return EALREADY;
    m_body = std::move(body);
    m_name = name;
    m_stop = false;
    (void)vos_cond_wait_init(&m_wake, 1);
    const int error = thread_create(kJoinable, enter, this, &m_thread);
    m_created = error == 0;
    return error;
}

void TBackgroundThread::request_stop()
{
    m_stop = true;
    (void)vos_cond_wait_signal(&m_wake);
}

void TBackgroundThread::join()
{
    if (m_created)
        pthread_join(m_thread, nullptr);
    m_created = false;
}

bool TBackgroundThread::wait_ms(uint64_t time_ms)
{
    if (!m_stop)
        (void)vos_cond_wait_ms(&m_wake, time_ms);
    return !m_stop;
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
