#include "common/worker.h"

#include <exception>

#include "base/thread.h"
#include "common/stop_watch.h"
#include "common/tick.h"
#include "common/trace.h"
#include "platform/interrupt.h"
#include "platform/time_stamp.h"

void TWorker::prepare()
{
    if (!m_ready)
        vos_cond_wait_init(&m_cond, 1);
    m_ready = true;
}

int TWorker::start(const TWorkerPlan &plan)
{
    prepare();
    m_terminate = false;
    m_plan = plan;
    const int error = thread_create(kJoinable, enter, this, &m_thread);
    m_created = error == 0;
    return error;
}

void TWorker::wake()
{
    if (m_ready)
        vos_cond_wait_signal(&m_cond);
}

void TWorker::stop()
{
    m_terminate = true;
    wake();
    if (m_created)
        pthread_join(m_thread, nullptr);
    m_created = false;
    write_stderr("end wait_for_terminate...\n");
}

void TWorker::release()
{
    if (m_ready)
        vos_cond_wait_destroy(&m_cond);
    m_ready = false;
}

void TWorker::wait_s(int seconds)
{
    /* The signal of the stop may have ended an earlier sleep of the same pass. */
    if (!terminated())
        vos_cond_wait(&m_cond, seconds);
}

void TWorker::wait_due(const std::function<bool()> &is_due)
{
    {
        const TTickWait wait(this, is_due);
        wait_s(wait.is_ticking() ? kLongestWaitS : 1);
    }
    /* A tick may have come just when the time was over: its signal would end the next
     * wait. A stop's may go with it, since the flag was set before. */
    (void)vos_cond_wait(&m_cond, 0);
}

void TWorker::pause_s(int seconds)
{
    const uint64_t start_ms = current_time_stamp_mono_r();
    wait_s(seconds);
    const uint64_t missing_ms = start_ms + static_cast<uint64_t>(seconds) * 1000 - current_time_stamp_mono_r();
    if (missing_ms != 0 && missing_ms < 1000)
        wait_s(1);
}

TMustComplete::TMustComplete(TWorker *worker) : m_worker(*worker)
{
    platform_interrupt_on(nullptr);
    stop_watch_progress();
}

TMustComplete::~TMustComplete()
{
    stop_watch_progress();
    platform_interrupt_on(&m_worker.m_terminate);
}

bool TWorker::run(const std::function<void()> &pass)
{
    try {
        pass();
        return true;
    } catch (const std::exception &failure) {
        write_stderr("%s: a pass failed: %s\n", m_plan.function, failure.what());
    }
    wait_s(kAfterFailureS);
    return false;
}

void TWorker::run_passes(const std::function<void()> &pass)
{
    while (!terminated())
        (void)run(pass);
}

void TWorker::run_once(const std::function<void()> &pass)
{
    while (!terminated() && !run(pass)) {
    }
}

void TWorker::set_up() const
{
    const auto failed = [this](const char *call, int error) {
        if (m_plan.cancel_failed != nullptr)
            m_plan.cancel_failed(call, error);
        else
            write_stderr("%s failed..., errno=%d", call, error);
    };
    if (const int error = pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr); error != 0)
        failed("pthread_setcancelstate", error);
    if (const int error = pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr); error != 0)
        failed("pthread_setcanceltype", error);
    thread_set_name(m_plan.name);
}

void *TWorker::enter(void *self)
{
    auto *worker = static_cast<TWorker *>(self);
    worker->set_up();
    platform_interrupt_on(&worker->m_terminate);
    try {
        worker->m_plan.body(worker);
    } catch (const std::exception &failure) {
        /* Outside of the passes, so there is no next one. The daemon goes on without this
         * thread. */
        write_stderr("%s ended by an exception: %s\n", worker->m_plan.function, failure.what());
    }
    write_stderr(" %s was terminated.\n", worker->m_plan.function);
    return nullptr;
}
