#pragma once

#include <functional>

class TWorker;

/* The tick of the second. Some workers only look every second whether something is due.
 * One thread that wakes every second anyway does this for all of them, and wakes only
 * those with something to do: a thread that wakes on an idle machine costs many times as
 * much as the look itself. */

/* Wakes the waiting workers for which something is due. The main thread calls this about
 * once a second. */
void tick_run();

/* There are no more ticks: the waiting workers wake, and wait for themselves from now on. */
void tick_end();

/* Has the ticks test `is_due` for a worker during the lifetime of the object. `is_due`
 * runs in the thread of the ticks while the worker waits; it must not block or throw. */
class TTickWait {
public:
    TTickWait(TWorker *worker, const std::function<bool()> &is_due);
    ~TTickWait();
    TTickWait(const TTickWait &) = delete;
    TTickWait &operator=(const TTickWait &) = delete;

    /* Whether there were ticks when it began. */
    bool is_ticking() const { return m_is_ticking; }

private:
    friend void tick_run();
    friend void tick_end();

    TWorker &m_worker;
    const std::function<bool()> &m_is_due;
    bool m_is_ticking = false;
};
