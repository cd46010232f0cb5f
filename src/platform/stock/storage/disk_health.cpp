#include "platform/stock/storage/disk_health.h"

#include <cerrno>
#include <exception>
#include <utility>

#include "base/text.h"
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
std::optional<uint64_t> smart_due_in(const TSmartMoment &last, const TSmartMoment &now)
{
    const uint64_t age_ms = now.mono_ms - last.mono_ms;
    if (age_ms < kLongestMs && same_hour(last.local, now.local) && now.wall_s >= last.wall_s)
        return std::nullopt;
    return age_ms < kShortestMs ? kShortestMs - age_ms : 0;
}

TDiskHealth::TEntry &TDiskHealth::entry_of(const std::string &identity)
{
    if (m_entries.size() >= kMostDisks && !m_entries.contains(identity))
        std::erase_if(m_entries, [](const auto &one) { return !one.second.busy; });
    return m_entries[identity];
}

TSmartReading TDiskHealth::known(const std::string &identity)
{
    const TLock guard(m_lock);
    const auto found = m_entries.find(identity);
    return found != m_entries.end() ? found->second.known : TSmartReading();
}

/* Adds the result of a query to what is known of the disk. */
void TDiskHealth::take(const TBlockDevice &disk, TSmartOutcome outcome, int error, const TSmartReading &reading,
                       TEntry *entry)
{
    /* A child that could not be killed is counted by its arguments: the next query must use the same ones, so that a
     * second child does not block on the disk. */
    if (outcome != TSmartOutcome::kNoAnswer)
        entry->may_wake = false;
    switch (outcome) {
    case TSmartOutcome::kRead:
        entry->known.worn = reading.worn;
        if (reading.passed.has_value())
            entry->known.passed = reading.passed;
        if (reading.power_on_hours.has_value())
            entry->known.power_on_hours = reading.power_on_hours;
        entry->was_read = true;
        entry->result = 0;
        break;
    case TSmartOutcome::kAsleep:
        entry->result = entry->was_read || entry->has_no_smart ? 0 : -EAGAIN;
        break;
    case TSmartOutcome::kNoSmart:
        /* If it had SMART before, it cannot be read now. */
        entry->result = entry->was_read ? -EIO : 0;
        if (!entry->was_read && !std::exchange(entry->has_no_smart, true))
            log_Debug("/dev/%s has no SMART", disk.name.c_str());
        break;
    case TSmartOutcome::kUnreadable:
    case TSmartOutcome::kNoAnswer:
        entry->result = error != 0 ? error : -EIO;
        break;
    }
    if (entry->result != 0)
        log_Debug("SMART of /dev/%s cannot be read: %s", disk.name.c_str(), error_text(-entry->result).c_str());
}

int TDiskHealth::read(const TBlockDevice &disk, TSmartReading *out)
{
    TCallWait wait;
    TLock lock(m_lock);
    TSmartMoment now;
    std::optional<uint64_t> due_in_ms;
    for (;;) {
        const TEntry &entry = entry_of(disk.identity);
        now = m_clock();
        due_in_ms = entry.asked ? smart_due_in(*entry.asked, now) : 0;
        if (!entry.busy && due_in_ms.value_or(0) == 0)
            break;
        if (platform_interrupted())
            return -EINTR;
        const uint64_t wait_ms = entry.busy ? kShortestMs : *due_in_ms;
        lock.unlock();
        wait.wait({}, wait_ms);
        lock.lock();
    }
    TEntry &entry = entry_of(disk.identity);
    if (due_in_ms.has_value()) {
        TSmartOutcome outcome = TSmartOutcome::kAsleep;
        TSmartReading reading;
        int error = 0;
        const bool may_wake = entry.may_wake;
        if (may_wake || !disk.suspended) {
            entry.busy = true;
            lock.unlock();
            try {
                outcome = m_reader(disk.name, may_wake, &reading, &error);
            } catch (const std::exception &failure) {
                log_Debug("SMART of /dev/%s: %s", disk.name.c_str(), failure.what());
                outcome = TSmartOutcome::kNoAnswer;
            }
            lock.lock();
            entry.busy = false;
            call_waits_wake();
        }
        if (error == -EINTR)
            return error; // no query was made; the next caller may make one
        take(disk, outcome, error, reading, &entry);
        entry.asked = now;
    }
    if (entry.result == 0)
        *out = entry.known;
    return entry.result;
}
