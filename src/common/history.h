#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/mutex.h"
#include "common/trace.h"

/* The newest records of a series, in memory that is allocated once: when it is full,
 * each record takes the place of the oldest one. */
template <typename TRecord> class TRing {
public:
    explicit TRing(size_t capacity) : m_capacity(capacity) { m_records.reserve(capacity); }

    size_t size() const { return m_records.size(); }
    bool is_full() const { return size() == m_capacity; }
    const TRecord &oldest() const { return m_records[m_oldest]; }
    const TRecord &from_newest(size_t index) const // 0: the newest; less than size()
    {
        const size_t at = m_oldest + size() - 1 - index;
        return m_records[at < size() ? at : at - size()];
    }

    void push(TRecord record)
    {
        if (!is_full()) {
            m_records.push_back(std::move(record));
            return;
        }
        m_records[m_oldest] = std::move(record);
        m_oldest = (m_oldest + 1) % m_capacity;
    }

    /* The newest `count` records, or as many as there are, oldest first. */
    std::vector<TRecord> copy_newest(size_t count) const
    {
        std::vector<TRecord> copy;
        size_t left = std::min(count, size());
        copy.reserve(left);
        while (left > 0)
            copy.push_back(from_newest(--left));
        return copy;
    }

private:
    size_t m_capacity;
    size_t m_oldest = 0; // 0 until the ring is full
    std::vector<TRecord> m_records;
};

/* Sums of the intervals of each minute, newest first. */
template <typename TRecord> struct TMinutes {
    static constexpr size_t kIntervals = 6, kMost = 15;

    TRecord sums[kMost];
    size_t count = 0;

    std::span<const TRecord> all() const { return {sums, count}; }
};

/* What is kept of one tracked entity. */
template <typename TRecord> struct StatEntry {
    explicit StatEntry(size_t max_samples) : history(max_samples) {}

    TRecord last{};         // the previous raw reading
    TRecord total{};        // sum of everything now in history
    TRing<TRecord> history; // one element per interval
    bool first = true;      // no reading yet: the first one only primes
};

/* The history of one kind of statistics: per entity the differences of successive
 * readings, bounded, with a running sum.
 *
 * TRecord is the kind's sample record, a plain value with these operations:
 *     TRecord difference(const TRecord &older) const   the history element of two raw readings
 *     void add(const TRecord &element)           into a running sum
 *     void subtract(const TRecord &element)      out of a running sum
 * A kind without the last two keeps no running sum, and has a get_total of its own.
 * Counters are unsigned and wrap; one that went backwards is kept as it is, since
 * readers of a history know that.
 *
 * The entities are fixed by init_map, which runs in the constructor of the derived
 * manager. The lock is held for the time of a copy or a sum only and is always the inner
 * one where the global statistics lock is held too. */
template <typename TRecord> class TStatManagerBase {
public:
    TStatManagerBase() { trace("statManager.h", "TStatManagerBase", 57); }
    virtual ~TStatManagerBase()
    {
        trace("statManager.h", "~TStatManagerBase", 64);
        for (const auto &[key, entry] : m_entries)
            write_stderr("%s, delete=[%s]\n", "~TStatManagerBase", key.c_str());
    }
    TStatManagerBase(const TStatManagerBase &) = delete;
    TStatManagerBase &operator=(const TStatManagerBase &) = delete;

    /* Another number for each manager of its kind there has been, from 1. */
    unsigned serial() const { return m_serial; }

    /* Stores one raw reading. 0, or -1 for an entity that is not tracked. Kinds whose
     * intervals are more than differences of counters override it around store(). */
    virtual int add_sample(const std::string &key, const TRecord &raw)
    {
        return store(key, raw, [](const TRecord &newer, const TRecord &older) { return newer.difference(older); });
    }

    /* The newest interval; zeros without one. */
    TRecord get_current(const std::string &key) const
    {
        const TLock lock(m_lock);
        const StatEntry<TRecord> *entry = find(key);
        return entry == nullptr || entry->history.size() == 0 ? TRecord{} : entry->history.from_newest(0);
    }

    /* The sum of the newest n intervals, n = 0 for all of them; zeros without any.
     * Fields that are not summed are those of the oldest one summed. */
    TRecord get_total(const std::string &key, int n) const
    {
        const TLock lock(m_lock);
        const StatEntry<TRecord> *entry = find(key);
        if (entry == nullptr || n == 0)
            return entry == nullptr ? TRecord{} : entry->total;
        TRecord sum{};
        for (size_t i = 0; i < std::min(static_cast<size_t>(n), entry->history.size()); ++i)
            sum.add(entry->history.from_newest(i));
        return sum;
    }

    /* The newest intervals, or the whole history, oldest first; nothing for an entity
     * that is not tracked. */
    std::optional<std::vector<TRecord>> copy_newest(const std::string &key, size_t count) const
    {
        const TLock lock(m_lock);
        const StatEntry<TRecord> *entry = find(key);
        return entry == nullptr ? std::nullopt : std::optional(entry->history.copy_newest(count));
    }
    std::optional<std::vector<TRecord>> copy_history(const std::string &key) const
    {
        return copy_newest(key, SIZE_MAX);
    }

    /* The newest 15 minutes, of which the oldest may have fewer intervals. */
    TMinutes<TRecord> get_minutes(const std::string &key) const
    {
        TMinutes<TRecord> minutes;
        const TLock lock(m_lock);
        if (const StatEntry<TRecord> *entry = find(key); entry != nullptr) {
            const size_t count = std::min(entry->history.size(), minutes.kIntervals * minutes.kMost);
            for (size_t i = 0; i < count; ++i)
                minutes.sums[i / minutes.kIntervals].add(entry->history.from_newest(i));
            minutes.count = (count + minutes.kIntervals - 1) / minutes.kIntervals;
        }
        return minutes;
    }

    /* The tracked entities, in ascending order. */
    std::vector<std::string> keys() const
    {
        const TLock lock(m_lock);
        std::vector<std::string> keys;
        keys.reserve(m_entries.size());
        for (const auto &[key, entry] : m_entries)
            keys.push_back(key);
        return keys;
    }

protected:
    /* Names the entities to track, with track(). */
    virtual void init_map() = 0;

    void track(const std::string &key)
    {
        const TLock lock(m_lock);
        if (!m_entries.contains(key))
            m_entries.emplace(key, std::make_unique<StatEntry<TRecord>>(static_cast<size_t>(m_max_samples)));
    }

    /* Priming, bounding and locking, around a kind's own rule for the history
     * element of two raw readings. */
    template <typename TDifference> int store(const std::string &key, const TRecord &raw, TDifference difference)
    {
        const TLock lock(m_lock);
        StatEntry<TRecord> *entry = find(key);
        if (entry == nullptr)
            return -1;
        if (!entry->first) {
            TRecord element = difference(raw, entry->last);
            if constexpr (requires { entry->total.subtract(element); }) {
                entry->total.add(element);
                if (entry->history.is_full())
                    entry->total.subtract(entry->history.oldest());
            }
            entry->history.push(std::move(element));
        }
        entry->first = false;
        entry->last = raw;
        return 0;
    }

    mutable TMutex m_lock;
    int32_t m_max_samples = 90; // one reading in 10 s: 15 minutes; of the entities tracked from here on

private:
    StatEntry<TRecord> *find(const std::string &key) const REQUIRES(m_lock)
    {
        const auto found = m_entries.find(key);
        return found == m_entries.end() ? nullptr : found->second.get();
    }

    static inline std::atomic<unsigned> s_made{0};
    const unsigned m_serial = ++s_made;
    std::map<std::string, std::unique_ptr<StatEntry<TRecord>>> m_entries GUARDED_BY(m_lock);
};
