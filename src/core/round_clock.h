#pragma once

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
        constexpr double kPeriodS = 10.0;
        if (difftime(now_s, m_last_s) < kPeriodS)
            return false;
        m_last_s = now_s;
        return true;
    }

private:
    time_t m_last_s;
};
