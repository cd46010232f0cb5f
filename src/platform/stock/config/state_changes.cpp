#include "platform/stock/config/state_changes.h"

#include <utility>

bool TStateChanges::is_news(const std::string &subject, uint64_t state)
{
    const TLock guard(m_lock);
    return std::exchange(m_states[subject], state) != state;
}
