#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <poll.h>

#include "base/fd.h"

/* The waits of calls that block their thread on a peer, a child or another thread. Each ends early when the thread is
 * asked to stop (platform/interrupt.h), without polling the flag: setting it is followed by call_waits_wake(). */

/* Ends the current waits of all threads, which then check their conditions again. Any thread may call. */
void call_waits_wake();

/* Registers the calling thread for wake-ups during its lifetime. Create it before checking the condition to wait for,
 * so that no change is missed. */
class TCallWait {
public:
    TCallWait();
    ~TCallWait();
    TCallWait(const TCallWait &) = delete;
    TCallWait &operator=(const TCallWait &) = delete;

    /* Sleeps until one of the descriptors is ready, the calls are woken, or the time is over; ignores -1 among the
     * descriptors. */
    void wait(std::initializer_list<int> readable, uint64_t time_ms);

    /* For a library that does its own waiting: readable after a wake-up, until taken(); -1 without descriptors. */
    int fd() const { return m_event.get(); }
    void taken();

    /* The longest wait for something due in that time: shorter without a descriptor for wake-ups. */
    int wait_ms(uint64_t time_ms) const;

private:
    TFd m_event;
};

/* Time since the calling thread was asked to stop, as first seen by one of its calls; 0 without a request, or when it
 * is first seen. All calls of the thread count from the same moment. */
uint64_t call_stop_lasts_ms();
