#pragma once

#include <algorithm>
#include <ctime>

/* When the sampling rounds are due: ten whole seconds of monotonic time after the
 * start, and after the beginning of each round. The wall clock plays no part, and
 * a round's own duration does not add to the period. */
class TRoundClock {
public:
    explicit TRoundClock(time_t now_s) : m_last_s(now_s) {}

    /* Whether a round is due; if so, it begins now. */
    bool due(time_t now_s)
    {
        if (now_s - m_last_s < kPeriodS)
            return false;
        m_last_s = now_s;
        return true;
    }

    /* Seconds until the next one is due; 1 when it is due already. */
    int left_s(time_t now_s) const { return static_cast<int>(std::max<time_t>(1, m_last_s + kPeriodS - now_s)); }

private:
    static constexpr time_t kPeriodS = 10;

    time_t m_last_s;
};
