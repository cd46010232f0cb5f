#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "base/mutex.h"
#include "platform/stock/http/http_client.h"
#include "platform/stock/process/background_thread.h"

struct T_NOTICE_LIMITS {
    size_t queued = 32;
    uint64_t call_ms = 2000;
    uint64_t farewell_ms = 500; // at the end, for what is still queued
};

/* Takes notices to the hub, in order, on a thread of its own that begins with the
 * first: a hub that hangs holds up nobody who has something to announce. A
 * notice that the hub does not take is not sent again. */
class TNoticeSender {
public:
    TNoticeSender(T_HTTP_PEER hub, const T_NOTICE_LIMITS &limits);

    /* What is queued gets its chance within the farewell; the rest is dropped. */
    ~TNoticeSender();
    TNoticeSender(const TNoticeSender &) = delete;
    TNoticeSender &operator=(const TNoticeSender &) = delete;

    /* Queues a notice as the hub takes it. Nothing is added when the last one that
     * still waits is the same; one that is under way already does not count, as it
     * may have been read before the news. A full queue drops its oldest, which is
     * logged. 0, or an error number when there is no thread. Any thread may call. */
    int send(std::string notice);

private:
    void deliver();
    void post(const std::string &notice) const;

    const T_HTTP_PEER m_hub;
    const T_NOTICE_LIMITS m_limits;
    TMutex m_lock;
    TCondition m_changed;
    std::deque<std::string> m_queue GUARDED_BY(m_lock);
    bool m_started GUARDED_BY(m_lock) = false; // there is a thread
    bool m_ending GUARDED_BY(m_lock) = false;  // it ends with the queue
    bool m_ended GUARDED_BY(m_lock) = false;   // it has
    std::atomic<bool> m_give_up{false};        // the call under way and all others
    TBackgroundThread m_thread;                // last: it uses the others
};
