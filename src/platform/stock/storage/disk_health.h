#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "base/mutex.h"
#include "platform/stock/storage/smartctl.h"

/* What the disks said of themselves, and when they are asked.
 *
 * Every question keeps a disk from falling asleep, so each is asked once per hour
 * of the local clock, whoever wants to know:
 *
 * - The SMART check lists the disks every minute and reads SMART of each in its
 *   first check of an hour. Its listing is where disks are read (SMART-worker): the
 *   status in the list and the figures of the reading that follows are of the same
 *   moment, so a disk that fails is in the report of the first check that can see it.
 * - The daily array check (VOL-worker) finds what was read in its hour, or reads.
 * - The disk flag (DISK-worker, the start, requests) lists disks too. It takes what
 *   is known and never waits: no lock is held while a disk is asked.
 *
 * A listing for the SMART check is told from one for the disk flag by what comes
 * before it on the same thread: that check asks for the enclosures, the flag does
 * not (pal_disks.cpp).
 *
 * One question per disk at a time; who else wants the same disk read waits for that
 * one and takes its answer. No disk is asked twice within a minute, whatever the
 * clock does: where an hour begins sooner after a question (the check after the
 * first one), the next one waits for the minute to pass. A failed question counts
 * as one. A disk asleep is left asleep and what was last read of it stands; one
 * that was never read is woken for it, once.
 *
 * Disks are known by their identity (WWN or serial number): what was read of one
 * moves with it and never shows at another in its place. */

/* The moment of a question, on both clocks. */
struct T_SMART_MOMENT {
    uint64_t mono_ms = 0;
    time_t wall_s = 0;
    struct tm local = {}; // of wall_s
};

/* In how many ms a disk that was last asked at `last` must be asked again, for a
 * reading of this hour: 0 is now. Empty when that one is good for this hour. */
std::optional<uint64_t> smart_due_in(const T_SMART_MOMENT &last, const T_SMART_MOMENT &now);

/* A disk to be asked. */
struct T_DISK_ADDRESS {
    std::string name; // "sda"
    std::string identity;
    bool suspended = false; // by the kernel: even opening it would wake it
};

class TDiskHealth {
public:
    /* Asks a disk; it may be woken only where `may_wake` is true. 0 or the error
     * behind an outcome that is none of the disk's own goes to *error. */
    using TReader =
        std::function<T_SMART_OUTCOME(const std::string &disk, bool may_wake, T_SMART_READING *out, int *error)>;
    using TClock = std::function<T_SMART_MOMENT()>;

    TDiskHealth(TReader reader, TClock clock) : m_reader(std::move(reader)), m_clock(std::move(clock)) {}

    /* What is known now; asks and waits for nobody. All is missing of a disk that
     * was never read. */
    T_SMART_READING known(const std::string &identity);

    /* Asks the disk where that is due, else goes by the last question. 0, with what
     * is known of it in *out (nothing, for a disk without SMART); -EINTR when the
     * caller is asked to stop; another -errno when the disk has SMART and could not
     * be read, or is asleep and never was. Failures and disks without SMART are
     * logged when they are found. */
    int read(const T_DISK_ADDRESS &disk, T_SMART_READING *out);

private:
    struct T_ENTRY {
        bool busy = false;      // somebody is asking
        bool was_asked = false; // at `asked`, with `result`
        bool was_read = false;  // at some time
        bool may_wake = true;   // until it was asked awake
        bool has_no_smart = false;
        T_SMART_MOMENT asked;
        int result = 0;
        T_SMART_READING known; // each figure the last that was read
    };

    T_ENTRY &entry_of(const std::string &identity) REQUIRES(m_lock);
    void take(const T_DISK_ADDRESS &disk, T_SMART_OUTCOME outcome, int error, const T_SMART_READING &reading,
              T_ENTRY *entry);

    const TReader m_reader;
    const TClock m_clock;
    TMutex m_lock;                                               // never held while a disk is asked
    std::map<std::string, T_ENTRY> m_entries GUARDED_BY(m_lock); // busy ones are not erased
};
