#include "platform/stock/storage/disk_health.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/stock/process/call_wait.h"

namespace {

constexpr uint64_t kShortestMs = 60'000;
constexpr uint64_t kLongestMs = 3'600'000;
constexpr size_t kMostDisks = 1024; // a disk without a serial number counts as a new one each time

bool same_hour(const struct tm &a, const struct tm &b)
{
    return a.tm_hour == b.tm_hour && a.tm_yday == b.tm_yday && a.tm_year == b.tm_year;
}

} // namespace

/* An hour is over by the calendar, as the checks count it; by its length too, as the calendar shows one hour twice when
 * summer time ends; and when the clock was set back. */
std::optional<uint64_t> smart_due_in(const T_SMART_MOMENT &last, const T_SMART_MOMENT &now)
{
    const uint64_t age_ms = now.mono_ms - last.mono_ms;
    if (age_ms < kLongestMs && same_hour(last.local, now.local) && now.wall_s >= last.wall_s)
        return std::nullopt;
    return age_ms < kShortestMs ? kShortestMs - age_ms : 0;
}

TDiskHealth::T_ENTRY &TDiskHealth::entry_of(const std::string &identity)
{
    if (m_entries.size() >= kMostDisks && !m_entries.contains(identity))
        std::erase_if(m_entries, [](const auto &one) { return !one.second.busy; });
    return m_entries[identity];
}

T_SMART_READING TDiskHealth::known(const std::string &identity)
{
    const TLock guard(m_lock);
    const auto found = m_entries.find(identity);
    return found != m_entries.end() ? found->second.known : T_SMART_READING();
}

/* Adds the result of a query to what is known of the disk. */
void TDiskHealth::take(const T_DISK_ADDRESS &disk, T_SMART_OUTCOME outcome, int error, const T_SMART_READING &reading,
                       T_ENTRY *entry)
{
    /* A child that could not be killed is counted by its arguments: the next query must use the same ones, so that a
     * second child does not block on the disk. */
    if (outcome != T_SMART_OUTCOME::no_answer)
        entry->may_wake = false;
    switch (outcome) {
    case T_SMART_OUTCOME::read:
        entry->known.worn = reading.worn;
        if (reading.passed.has_value())
            entry->known.passed = reading.passed;
        if (reading.power_on_hours.has_value())
            entry->known.power_on_hours = reading.power_on_hours;
        entry->was_read = true;
        entry->result = 0;
        break;
    case T_SMART_OUTCOME::asleep:
        entry->result = entry->was_read || entry->has_no_smart ? 0 : -EAGAIN;
        break;
    case T_SMART_OUTCOME::no_smart:
        /* If it had SMART before, it cannot be read now. */
        entry->result = entry->was_read ? -EIO : 0;
        if (!entry->was_read && !std::exchange(entry->has_no_smart, true))
            log_Debug("/dev/%s has no SMART", disk.name.c_str());
        break;
    case T_SMART_OUTCOME::unreadable:
    case T_SMART_OUTCOME::no_answer:
        entry->result = error != 0 ? error : -EIO;
        break;
    }
    if (entry->result != 0)
        log_Debug("SMART of /dev/%s cannot be read: %s", disk.name.c_str(), strerror(-entry->result));
}

int TDiskHealth::read(const T_DISK_ADDRESS &disk, T_SMART_READING *out)
{
    TCallWait wait;
    TLock lock(m_lock);
    T_SMART_MOMENT now;
    std::optional<uint64_t> due_in_ms;
    for (;;) {
        const T_ENTRY &entry = entry_of(disk.identity);
        now = m_clock();
        due_in_ms = entry.was_asked ? smart_due_in(entry.asked, now) : 0;
        if (!entry.busy && due_in_ms.value_or(0) == 0)
            break;
        if (platform_interrupted())
            return -EINTR;
        const uint64_t wait_ms = entry.busy ? kShortestMs : *due_in_ms;
        lock.unlock();
        wait.wait({}, wait_ms);
        lock.lock();
    }
    T_ENTRY &entry = entry_of(disk.identity);
    if (due_in_ms.has_value()) {
        T_SMART_OUTCOME outcome = T_SMART_OUTCOME::asleep;
        T_SMART_READING reading;
        int error = 0;
        const bool may_wake = entry.may_wake;
        if (may_wake || !disk.suspended) {
            entry.busy = true;
            lock.unlock();
            try {
                outcome = m_reader(disk.name, may_wake, &reading, &error);
            } catch (const std::exception &failure) {
                log_Debug("SMART of /dev/%s: %s", disk.name.c_str(), failure.what());
                outcome = T_SMART_OUTCOME::no_answer;
            }
            lock.lock();
            entry.busy = false;
            call_waits_wake();
        }
        if (error == -EINTR)
            return error; // no query was made; the next caller may make one
        take(disk, outcome, error, reading, &entry);
        entry.was_asked = true;
        entry.asked = now;
    }
    if (entry.result == 0)
        *out = entry.known;
    return entry.result;
}
