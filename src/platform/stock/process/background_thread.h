#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <pthread.h>

#include "platform/vos_cond.h"

/* A named thread of the platform. It blocks signals, and client calls made by its body are cancelled by a stop. start,
 * join and the destructor belong to the owner; any thread may call request_stop. */
class TBackgroundThread {
public:
    TBackgroundThread() = default;
    ~TBackgroundThread() { stop(); }
    TBackgroundThread(const TBackgroundThread &) = delete;
    TBackgroundThread &operator=(const TBackgroundThread &) = delete;

    /* Returns 0, or an error number; EALREADY before the thread was joined. An exception from `body` only ends the
     * thread. */
    int start(const char *name, std::function<void()> body);

    void request_stop();
    void join(); // harmless if it was never started
    void stop()
    {
        request_stop();
        join();
    }

    /* For the body: sleeps that long (whole seconds until the start of a second, see
     * process/wait_deadline.h), less on a stop request or wake(), which is kept for the
     * next wait. False after a stop request. */
    bool wait_ms(uint64_t time_ms);
    void wake() { (void)vos_cond_wait_signal(&m_wake); }

private:
    static void *enter(void *self);

    std::function<void()> m_body;
    const char *m_name = "";
    vos_cond_t m_wake;
    std::atomic<bool> m_stop;
    bool m_created = false; // owner only: there is a thread to join
    pthread_t m_thread = {};
};
