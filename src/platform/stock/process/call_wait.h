#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <poll.h>

#include "base/fd.h"

/* The waits of calls that block their thread on a peer, a child or another thread.
 * Each ends early when the thread is asked to stop (platform/interrupt.h), without a
 * look at the flag in between: setting it is followed by call_waits_wake(). */

/* Ends the present waits of all threads, which look at what they wait for anew. Any
 * thread may call. */
void call_waits_wake();

/* Registers the calling thread for wake-ups as long as it lives: made before what is
 * waited for is looked at, so that no change is missed. */
class TCallWait {
public:
    TCallWait();
    ~TCallWait();
    TCallWait(const TCallWait &) = delete;
    TCallWait &operator=(const TCallWait &) = delete;

    /* Sleeps until one of the descriptors is ready, somebody wakes the calls, or the
     * time is over; -1 among the descriptors is ignored. */
    void wait(std::initializer_list<int> readable, uint64_t time_ms);

    /* For a library that waits by itself: readable after a wake-up, until
     * taken(); -1 once the thread has been asked to stop, or without descriptors. */
    int fd() const;
    void taken();

    /* How long to wait at most for something due in that time: less where there is no
     * descriptor for wake-ups. */
    int wait_ms(uint64_t time_ms) const;

private:
    TFd m_event;
};

/* How long the calling thread has been asked to stop, as its calls have seen it; 0
 * when it is not or only now. All calls of the thread count from the same moment. */
uint64_t call_stop_lasts_ms();
