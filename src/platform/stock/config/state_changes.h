#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/mutex.h"

/* Which states are news. A file that cannot be used or a service that is elsewhere is
 * met again at each look; it is logged when that begins or changes. Any thread may
 * call. */
class TStateChanges {
public:
    /* Whether the subject stood otherwise at the last call; before the first, 0. */
    bool is_news(const std::string &subject, uint64_t state);

private:
    TMutex m_lock;
    std::map<std::string, uint64_t> m_states GUARDED_BY(m_lock);
};
