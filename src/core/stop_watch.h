#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

#include "base/mutex.h"

/* How long nothing may move in a stop. What is seen through moves: each call in it ends after 5 s. */
constexpr uint64_t kStopHangMs = 10'000;

/* What was seen last of a stop. */
struct T_STOP_PROGRESS {
    uint64_t moves = 0;
    uint64_t since_ms = 0; // when they became so many
};

/* Whether nothing has moved for too long. */
bool stop_hangs(T_STOP_PROGRESS *seen, uint64_t moves, uint64_t now_ms);

/* Watches a stop as long as it lives. A disk that does not answer can hold a thread for good, and who joins it: when a
 * step hangs, that is logged and the process ends by _exit(0), with nothing further done. Where there is no memory for
 * its thread, the stop goes unwatched. */
class TStopWatch {
public:
    TStopWatch();
    ~TStopWatch();
    TStopWatch(const TStopWatch &) = delete;
    TStopWatch &operator=(const TStopWatch &) = delete;

    /* The next step; a constant text. */
    void step(const char *name);

private:
    void watch();

    TMutex m_lock;
    TCondition m_changed;
    bool m_done GUARDED_BY(m_lock) = false;
    std::atomic<const char *> m_step{"stop"};
    std::atomic<uint64_t> m_steps{0};
    bool m_created = false;
    pthread_t m_thread = {};
};
