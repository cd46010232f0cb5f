#include "platform/stock/process/call_wait.h"

#include <algorithm>
#include <set>
#include <sys/eventfd.h>

#include "base/mutex.h"
#include "platform/interrupt.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kLongestMs = 3'600'000;
constexpr uint64_t kSliceMs = 100; // without a descriptor for wake-ups

struct TWaits {
    TMutex lock;
    std::multiset<int> events GUARDED_BY(lock);
};

TWaits &waits()
{
    static auto &instance = *new TWaits; // detached threads may still wait at exit
    return instance;
}

} // namespace

void call_waits_wake()
{
    TWaits &all = waits();
    const TLock guard(all.lock);
    for (const int event : all.events)
        (void)eventfd_write(event, 1);
}

TCallWait::TCallWait() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    TWaits &all = waits();
    const TLock guard(all.lock);
    if (m_event.is_open())
        all.events.insert(m_event.get());
}

TCallWait::~TCallWait()
{
    TWaits &all = waits();
    const TLock guard(all.lock);
    all.events.erase(m_event.get()); // no effect without a descriptor
}

void TCallWait::taken()
{
    eventfd_t wakeups = 0;
    (void)eventfd_read(m_event.get(), &wakeups);
}

int TCallWait::wait_ms(uint64_t time_ms) const
{
    return static_cast<int>(std::min(time_ms, m_event.is_open() ? kLongestMs : kSliceMs));
}

void TCallWait::wait(std::initializer_list<int> readable, uint64_t time_ms)
{
    constexpr size_t kMost = 4;
    pollfd waited[kMost] = {};
    nfds_t count = 0;
    waited[count++] = {fd(), POLLIN, 0};
    for (const int one : readable) {
        if (count < kMost)
            waited[count++] = {one, POLLIN, 0};
    }
    const int limit_ms = wait_ms(time_ms);
    const timespec limit = {limit_ms / 1000, limit_ms % 1000 * 1'000'000L};
    (void)ppoll(waited, count, &limit, nullptr);
    taken();
}

uint64_t call_stop_lasts_ms()
{
    thread_local uint64_t asked_ms = 0; // 0: no request
    const uint64_t now_ms = current_time_stamp_mono_r();
    if (!platform_interrupted())
        asked_ms = 0;
    else if (asked_ms == 0)
        asked_ms = now_ms;
    return asked_ms != 0 ? now_ms - asked_ms : 0;
}
