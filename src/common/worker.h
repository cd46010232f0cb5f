#pragma once

#include <atomic>
#include <functional>
#include <pthread.h>

#include "platform/vos_cond.h"

class TWorker;

/* What a worker thread is. */
struct T_WORKER_PLAN {
    const char *name;     // of the thread; the kernel keeps its first 15 characters
    const char *function; // of the body, told when it ends
    void (*body)(TWorker *self);
    /* Told when deferred cancellation cannot be set up ("pthread_setcancelstate"
     * or "pthread_setcanceltype"); null: the usual line on standard error. */
    void (*cancel_failed)(const char *call, int error) = nullptr;
};

/* A joinable thread that can be told to stop.
 *
 * The body is made of passes (run_passes) and sleeps in wait_s() only; a stop ends the
 * sleep, also one that was asked for just before it, and no other sleep begins.
 * Calls of the platform that the body makes give up when a stop is asked for.
 * Signals are blocked in the thread: they belong to the main thread. One object
 * serves one thread at a time; start, stop and release are the owner's, wake is
 * anyone's between. */
class TWorker {
public:
    /* Readies the condition. start() does it where it was not done. */
    void prepare();

    /* Clears the flag and creates the thread. 0, or pthread_create's error. */
    int start(const T_WORKER_PLAN &plan);

    /* Ends the thread's present or next sleep; nothing before prepare or start. */
    void wake();

    /* Flag, signal, join, "end wait_for_terminate...\n". Harmless, but for the
     * line, when the thread was never created. */
    void stop();

    /* Gives the condition back. */
    void release();

    /* For the body. */
    bool terminated() const { return m_terminate.load(); }
    void wait_s(int seconds);
    /* A delay: a wait may be up to a second shorter, this one is not, but for a stop. */
    void pause_s(int seconds);
    /* Makes one pass after the other until a stop is asked for; the pass sleeps by
     * itself. An exception (out of memory, most likely) ends the pass only: it is
     * logged, and the next pass begins kAfterFailureS later. */
    void run_passes(const std::function<void()> &pass);
    /* What the passes build on: once, and again in the same way after an exception. */
    void run_once(const std::function<void()> &pass);
    /* For a duty that must not end halfway: calls of the platform in it do not
     * give up on a stop. An exception of the duty passes through. */
    void see_through(const std::function<void()> &duty);

    static constexpr int kAfterFailureS = 60;

private:
    static void *enter(void *self);
    void set_up() const;
    bool made(const std::function<void()> &pass);

    T_WORKER_PLAN m_plan = {};
    std::atomic<bool> m_terminate{false};
    vos_cond_t m_cond = {};
    std::atomic<bool> m_ready{false}; // the condition is initialised
    bool m_created = false;           // owner's: there is a thread to join
    pthread_t m_thread = {};
};

/* How often a duty has begun or ended to be seen through, in all workers: that it
 * grows shows that something still moves. */
unsigned worker_duties();

/* Creates a thread that nobody waits for. 0, or pthread_create's error. */
int thread_start_detached(const char *name, void (*body)());
