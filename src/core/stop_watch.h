#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

#include "base/mutex.h"

/* How long a stop may make no progress. Work that must complete is progress: each of its calls ends after 5 s. */
constexpr uint64_t kStopHangMs = 10'000;

/* The progress of a stop as last observed. */
struct TStopProgress {
    uint64_t moves = 0;
    uint64_t since_ms = 0; // the last change
};

/* Whether there was no progress for too long. */
bool stop_hangs(TStopProgress *seen, uint64_t moves, uint64_t now_ms);

/* Watches a stop during its lifetime. A disk that does not respond can block a thread forever, and the stop with it: a
 * step that hangs is logged, and the process ends by _exit(0) without the steps behind it. If its own thread cannot be
 * created, the stop is not watched. */
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
