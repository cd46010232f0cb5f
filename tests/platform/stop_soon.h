#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/interrupt.h"
#include "platform/vos_cond.h"

/* Asks the calling thread to stop, as a worker's owner does, while it waits in a call. */
class TStopSoon {
public:
    explicit TStopSoon(int after_ms = 50)
    {
        (void)vos_cond_wait_init(&m_cond, 1);
        platform_interrupt_on(&m_flag);
        m_thread = std::thread([=, this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(after_ms));
            m_flag = true;
            (void)vos_cond_wait_signal(&m_cond);
        });
    }
    ~TStopSoon()
    {
        m_thread.join();
        platform_interrupt_on(nullptr);
    }

private:
    std::atomic<bool> m_flag{false};
    vos_cond_t m_cond;
    std::thread m_thread;
};
