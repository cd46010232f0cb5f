#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "platform/stock/storage/block_devices.h"

/* SMART readings of the disks, and when they are queried.
 *
 * Each query keeps a disk from falling asleep, so a disk is queried once per hour of the local clock for all callers:
 *
 * - The SMART check lists the disks every minute and reads SMART of each in its first check of an hour. The disks are
 *   queried in its listing (SMART-worker): the status in the list and the figures read after it are from the same
 *   moment, so a failing disk is in the report of the first check that can see it.
 * - The daily array check (VOL-worker) uses the reading of its hour, or makes it.
 * - The disk flag (DISK-worker, the start, requests) lists disks too. It uses what is known and never waits: no lock is
 *   held during a query.
 *
 * Listings for the SMART check and for the disk flag are distinguished by the preceding call on the same thread: that
 * check queries the enclosures first, the flag does not (pal_disks.cpp).
 *
 * One query per disk at a time; other callers for the same disk wait for it and use its result. No disk is queried
 * twice within a minute, whatever the clock does: when an hour begins sooner after a query (the check after the first
 * one), the next query waits for the minute to pass. A failed query counts as one. A sleeping disk is not woken and its
 * last reading is used; a disk that was never read is woken for it, once.
 *
 * Disks are identified by WWN or serial number: a reading moves with its disk and never shows for another one in its
 * place. */

/* The time of a query, on both clocks. */
struct TSmartMoment {
    uint64_t mono_ms = 0;
    time_t wall_s = 0;
    struct tm local = {}; // of wall_s
};

/* Time in ms until a disk last queried at `last` is due again for a reading of this hour: 0 is now. Empty when the last
 * reading is valid for this hour. */
std::optional<uint64_t> smart_due_in(const TSmartMoment &last, const TSmartMoment &now);

class TDiskHealth {
public:
    /* Queries a disk, waking it only if `may_wake` is true. *error receives 0, or the error behind an outcome that is
     * not the disk's own. */
    using TReader =
        std::function<TSmartOutcome(const std::string &disk, bool may_wake, TSmartReading *out, int *error)>;
    using TClock = std::function<TSmartMoment()>;

    TDiskHealth(TReader reader, TClock clock) : m_reader(std::move(reader)), m_clock(std::move(clock)) {}

    /* What is known now, without a query or a wait. Empty for a disk that was never read. */
    TSmartReading known(const std::string &identity);

    /* Queries the disk if that is due, otherwise uses the last query. Returns 0 with what is known in *out (empty for a
     * disk without SMART); -EINTR when the caller is asked to stop; another -errno when the disk has SMART and could
     * not be read, or is asleep and never was. Failures and disks without SMART are logged when found. */
    int read(const TBlockDevice &disk, TSmartReading *out);

private:
    struct TEntry {
        bool busy = false;     // a query is running
        bool was_read = false; // at least once
        bool may_wake = true;  // until it was queried awake
        bool has_no_smart = false;
        std::optional<TSmartMoment> asked; // the last query
        int result = 0;                    // of it
        TSmartReading known;               // the last value read of each figure
    };

    TEntry &entry_of(const std::string &identity) REQUIRES(m_lock);
    void take(const TBlockDevice &disk, TSmartOutcome outcome, int error, const TSmartReading &reading, TEntry *entry);

    const TReader m_reader;
    const TClock m_clock;
    TMutex m_lock;                                              // never held during a query
    std::map<std::string, TEntry> m_entries GUARDED_BY(m_lock); // busy ones are not erased
};
