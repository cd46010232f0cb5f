#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "base/mutex.h"
#include "platform/stock/http/http_client.h"
#include "platform/stock/process/background_thread.h"

struct TNoticeLimits {
    size_t queued = 32;
    uint64_t call_ms = 2000;
    uint64_t farewell_ms = 500; // at the end, for notices still queued
};

/* Sends notices to the hub, in order, on a thread of its own that starts with the first: a hub that hangs does not
 * block the sender of a notice. A notice that the hub does not accept is not sent again. */
class TNoticeSender {
public:
    TNoticeSender(THttpPeer hub, const TNoticeLimits &limits);

    /* Queued notices are sent within the farewell time; the rest is dropped. */
    ~TNoticeSender();
    TNoticeSender(const TNoticeSender &) = delete;
    TNoticeSender &operator=(const TNoticeSender &) = delete;

    /* Queues a notice in the hub's format. A notice equal to the last one still queued is not added; one that is
     * already being sent does not count, as the hub may have read it before the change. A full queue drops its oldest
     * notice, which is logged. Returns 0, or an error number when there is no thread. Any thread may call. */
    int send(std::string notice);

private:
    void deliver();
    void post(const std::string &notice) const;

    const THttpPeer m_hub;
    const TNoticeLimits m_limits;
    TMutex m_lock;
    TCondition m_changed;
    std::deque<std::string> m_queue GUARDED_BY(m_lock);
    bool m_started GUARDED_BY(m_lock) = false; // the thread exists
    bool m_ending GUARDED_BY(m_lock) = false;  // the thread ends with the queue
    bool m_ended GUARDED_BY(m_lock) = false;   // the thread has ended
    std::atomic<bool> m_give_up{false};        // cancels the current call and all later ones
    TBackgroundThread m_thread;                // last: it uses the members above
};
