#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/* Locks that the compiler checks: clang, in `./dev lint`, rejects access to a GUARDED_BY member without its lock. GCC
 * ignores the annotations. */
#ifdef __clang__
#define VELOMOND_LOCKS(x) __attribute__((x))
#else
#define VELOMOND_LOCKS(x)
#endif

#define GUARDED_BY(mutex) VELOMOND_LOCKS(guarded_by(mutex))
#define REQUIRES(...) VELOMOND_LOCKS(requires_capability(__VA_ARGS__))

class VELOMOND_LOCKS(capability("mutex")) TMutex {
public:
    void lock() VELOMOND_LOCKS(acquire_capability()) { m_mutex.lock(); }
    void unlock() VELOMOND_LOCKS(release_capability()) { m_mutex.unlock(); }

private:
    friend class TCondition;
    std::mutex m_mutex;
};

/* Holds a lock to the end of the block, except between unlock() and lock(). */
class VELOMOND_LOCKS(scoped_lockable) TLock {
public:
    explicit TLock(TMutex &mutex) VELOMOND_LOCKS(acquire_capability(mutex)) : m_held(mutex) {}
    ~TLock() VELOMOND_LOCKS(release_capability()) {}
    TLock(const TLock &) = delete;
    TLock &operator=(const TLock &) = delete;

    void lock() VELOMOND_LOCKS(acquire_capability()) { m_held.lock(); }
    void unlock() VELOMOND_LOCKS(release_capability()) { m_held.unlock(); }

private:
    std::unique_lock<TMutex> m_held;
};

/* Waits for a change of what a lock guards. Callers test the condition in a loop of their own, so that the analysis
 * sees the lock held: `while (!ready) changed.wait(mutex);`. */
class TCondition {
public:
    void notify_one() { m_condition.notify_one(); }
    void notify_all() { m_condition.notify_all(); }
    void wait(TMutex &mutex) REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> held(mutex.m_mutex, std::adopt_lock);
        m_condition.wait(held);
        (void)held.release(); // still locked, as the caller expects
    }
    /* False on timeout. */
    bool wait_until(TMutex &mutex, std::chrono::steady_clock::time_point time) REQUIRES(mutex)
    {
        std::unique_lock<std::mutex> held(mutex.m_mutex, std::adopt_lock);
        const bool in_time = m_condition.wait_until(held, time) == std::cv_status::no_timeout;
        (void)held.release();
        return in_time;
    }

private:
    std::condition_variable m_condition;
};
