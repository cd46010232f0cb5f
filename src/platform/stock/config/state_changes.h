#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/mutex.h"

/* Detects changes of state, for logging: a file that cannot be used or a service at another address is found at every
 * look, but logged only when that begins or changes. Any thread may call. */
class TStateChanges {
public:
    /* Whether the state of the subject differs from the last call; before the first call it is 0. */
    bool is_news(const std::string &subject, uint64_t state);

private:
    TMutex m_lock;
    std::map<std::string, uint64_t> m_states GUARDED_BY(m_lock);
};
