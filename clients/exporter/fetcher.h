#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "exporter/metrics.h"

/* The metrics for a scrape. The monitor is asked only when what it said before is as
 * old as one of its rounds, whatever came of that; scrapes at the same time wait for
 * one fetch and share it. Any thread. */
class TFetcher {
public:
    static constexpr std::chrono::milliseconds kRound{10000};

    using TClock = std::function<std::chrono::steady_clock::time_point()>;
    TFetcher(TAddress address, std::chrono::milliseconds timeout, TClock clock = std::chrono::steady_clock::now);

    std::string text();

private:
    void fetch();

    std::mutex m_lock;
    TQueryApi m_api; // this and all below: guarded by m_lock
    const std::chrono::milliseconds m_timeout;
    const TClock m_clock;
    TFetch m_newest;
    std::chrono::steady_clock::time_point m_begun, m_ended;
    bool m_fetched = false;
};
