#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "common/trace.h"

/* What is kept of one tracked entity. */
template <typename T> struct StatEntry {
    T last{};              // the previous raw reading
    T total{};             // sum of everything now in history
    std::deque<T> history; // one element per interval, oldest first
    bool first = true;     // no reading yet: the first one only primes
};

/* The history of one kind of statistics: per entity the differences of successive
 * readings, bounded, with a running sum.
 *
 * T is the kind's sample record, a plain value with these operations:
 *     T difference(const T &older) const   the history element of two raw readings
 *     void add(const T &element)           into a running sum
 *     void subtract(const T &element)      out of a running sum
 * Counters are unsigned and wrap; one that went backwards is kept as it is, since
 * whoever reads a history knows that.
 *
 * The entities are fixed by init_map, which runs in the constructor of the derived
 * manager, before anybody else can see the object: looking one up takes no lock.
 * m_lock guards the entries; it is held for the time of a copy only and is always
 * the inner one where the global statistics lock is held too. */
template <typename T> class TStatManagerBase {
public:
    TStatManagerBase() { trace("statManager.h", "TStatManagerBase", 57); }
    virtual ~TStatManagerBase()
    {
        trace("statManager.h", "~TStatManagerBase", 64);
        for (const auto &[key, entry] : m_entries)
            tell("%s, delete=[%s]\n", "~TStatManagerBase", key.c_str());
    }
    TStatManagerBase(const TStatManagerBase &) = delete;
    TStatManagerBase &operator=(const TStatManagerBase &) = delete;

    /* Another number for each manager of its kind there has been, from 1. */
    unsigned serial() const { return m_serial; }

    /* Stores one raw reading. 0, or -1 for an entity that is not tracked. Kinds whose
     * intervals are more than differences of counters override it around store(). */
    virtual int add_sample(const std::string &key, const T &raw)
    {
        return store(key, raw, [](const T &newer, const T &older) { return newer.difference(older); });
    }

    /* The newest interval; zeros when there is none. */
    T get_current(const std::string &key)
    {
        StatEntry<T> *entry = find(key);
        if (entry == nullptr)
            return T{};
        const std::lock_guard<std::mutex> guard(m_lock);
        return entry->history.empty() ? T{} : entry->history.back();
    }

    /* The sum of the newest n intervals, n = 0 for all of them; zeros when there
     * are none. Fields that are not summed are those of the oldest one summed. */
    T get_total(const std::string &key, int n)
    {
        StatEntry<T> *entry = find(key);
        if (entry == nullptr)
            return T{};
        std::vector<T> newest;
        {
            const std::lock_guard<std::mutex> guard(m_lock);
            if (n == 0)
                return entry->total;
            const auto count = std::min(entry->history.size(), static_cast<size_t>(n));
            newest.assign(entry->history.end() - static_cast<std::ptrdiff_t>(count), entry->history.end());
        }
        T sum{};
        for (auto element = newest.rbegin(); element != newest.rend(); ++element)
            sum.add(*element);
        return sum;
    }

    /* The whole history, oldest first; nothing for an entity that is not tracked. */
    std::optional<std::deque<T>> copy_history(const std::string &key)
    {
        StatEntry<T> *entry = find(key);
        if (entry == nullptr)
            return std::nullopt;
        const std::lock_guard<std::mutex> guard(m_lock);
        return entry->history;
    }

    /* The tracked entities, in ascending order of their keys. */
    const std::map<std::string, std::unique_ptr<StatEntry<T>>> &entries() const { return m_entries; }

protected:
    /* Names the entities to track, with track(). */
    virtual void init_map() = 0;

    void track(const std::string &key)
    {
        if (!m_entries.contains(key))
            m_entries.emplace(key, std::make_unique<StatEntry<T>>());
    }

    StatEntry<T> *find(const std::string &key) const
    {
        const auto found = m_entries.find(key);
        return found == m_entries.end() ? nullptr : found->second.get();
    }

    /* Priming, bounding and locking, around a kind's own rule for the history
     * element of two raw readings. */
    template <typename DIFFERENCE> int store(const std::string &key, const T &raw, DIFFERENCE difference)
    {
        StatEntry<T> *entry = find(key);
        if (entry == nullptr)
            return -1;
        const std::lock_guard<std::mutex> guard(m_lock);
        if (entry->first) {
            entry->last = raw;
            entry->first = false;
            return 0;
        }
        entry->history.push_back(difference(raw, entry->last));
        entry->total.add(entry->history.back());
        while (entry->history.size() > static_cast<size_t>(m_max_samples)) {
            entry->total.subtract(entry->history.front());
            entry->history.pop_front();
        }
        entry->last = raw;
        return 0;
    }

    std::mutex m_lock;

private:
    static inline std::atomic<unsigned> s_made{0};
    const unsigned m_serial = ++s_made;
    std::map<std::string, std::unique_ptr<StatEntry<T>>> m_entries;

protected:
    int32_t m_max_samples = 90; // one reading in 10 s: 15 minutes
};

/* Walks a history from the newest interval to the oldest in groups of six (one
 * minute at one reading in 10 s; the last group may be shorter) and hands each
 * group's sum to `point`: at most 15 points, newest first. */
template <typename T, typename POINT> void stat_per_minute(const std::deque<T> &history, POINT point)
{
    constexpr int kGroup = 6;
    T sum{};
    int grouped = 0;
    for (auto element = history.rbegin(); element != history.rend(); ++element) {
        sum.add(*element);
        if (++grouped == kGroup || std::next(element) == history.rend()) {
            point(sum);
            sum = T{};
            grouped = 0;
        }
    }
}
