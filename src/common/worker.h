#pragma once

#include <atomic>
#include <functional>
#include <pthread.h>

#include "platform/vos_cond.h"

class TWorker;

/* What a worker thread is. */
struct TWorkerPlan {
    const char *name;     // of the thread; the kernel keeps its first 15 characters
    const char *function; // of the body, logged when it ends
    void (*body)(TWorker *self);
    /* Logs that deferred cancellation cannot be set up ("pthread_setcancelstate" or
     * "pthread_setcanceltype"); null: the usual line on standard error. */
    void (*cancel_failed)(const char *call, int error) = nullptr;
};

/* A joinable thread that stops on request.
 *
 * The body is made of passes (run_passes) and sleeps in the waits below only; a stop request
 * ends the sleep, even if it came just before, and no further sleep begins. It also
 * cancels the platform calls of the body. Signals are blocked in the thread: they belong
 * to the main thread. One object serves one thread at a time; its owner starts, stops
 * and releases it, and any thread may wake it in between. */
class TWorker {
public:
    /* Initialises the condition, as start() does if it was not done before. */
    void prepare();

    /* Clears the flag and creates the thread. 0, or pthread_create's error. */
    int start(const TWorkerPlan &plan);

    /* Ends the thread's present or next sleep; nothing before prepare or start. */
    void wake();

    /* Flag, signal, join, "end wait_for_terminate...\n". Harmless, but for the
     * line, when the thread was never created. */
    void stop();

    /* Releases the condition. */
    void release();

    /* For the body. */
    bool terminated() const { return m_terminate.load(); }
    void wait_s(int seconds);
    /* Sleeps until something is due, which is looked at every second, or for
     * kLongestWaitS. For what `is_due` may do see tick.h. */
    void wait_due(const std::function<bool()> &is_due);
    /* A delay: a wait may be up to a second shorter, this one is only shortened by a
     * stop. */
    void pause_s(int seconds);
    /* Repeats the pass, which sleeps by itself, until a stop request. An exception (most
     * likely out of memory) ends only its pass: it is logged, and the next pass begins
     * kAfterFailureS later. */
    void run_passes(const std::function<void()> &pass);
    /* Runs what the passes build on, and repeats it in the same way after an exception. */
    void run_once(const std::function<void()> &pass);

    static constexpr int kAfterFailureS = 60;
    static constexpr int kLongestWaitS = 10;

private:
    friend class TMustComplete;

    static void *enter(void *self);
    void set_up() const;
    bool run(const std::function<void()> &pass);

    TWorkerPlan m_plan = {};
    std::atomic<bool> m_terminate{false};
    vos_cond_t m_cond = {};
    std::atomic<bool> m_ready{false}; // the condition is initialised
    bool m_created = false;           // owner's: there is a thread to join
    pthread_t m_thread = {};
};

/* Work of a worker's body that must complete: while it exists, calls of the platform
 * ignore stop requests, and a stop that waits for it does not hang. */
class TMustComplete {
public:
    explicit TMustComplete(TWorker *worker);
    ~TMustComplete();
    TMustComplete(const TMustComplete &) = delete;
    TMustComplete &operator=(const TMustComplete &) = delete;

private:
    const TWorker &m_worker;
};
