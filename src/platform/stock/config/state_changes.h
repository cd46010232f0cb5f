#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "base/mutex.h"

/* Detects new faults, for logging: a file that cannot be used or a service at another address is found at every look,
 * but logged only when that begins or changes. Any thread may call. */
class TStateChanges {
public:
    /* Whether the subject is in a state that it was not in at the last call. State 0 is no fault and never news. */
    bool is_news(const std::string &subject, int64_t state)
    {
        const TLock guard(m_lock);
        return std::exchange(m_states[subject], state) != state && state != 0;
    }

private:
    TMutex m_lock;
    std::map<std::string, int64_t> m_states GUARDED_BY(m_lock);
};
