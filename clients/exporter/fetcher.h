#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>

#include "exporter/metrics.h"

/* The metrics for a scrape. A new fetch is made only when the previous one, failed or
 * not, is at least one sampling round old; concurrent scrapes wait for one fetch and
 * share it. Thread-safe. */
class TFetcher {
public:
    static constexpr std::chrono::milliseconds kRound{10000};

    using TClock = std::function<std::chrono::steady_clock::time_point()>;
    TFetcher(TAddress address, std::chrono::milliseconds timeout, TClock clock = std::chrono::steady_clock::now);

    std::string text();

private:
    void fetch();

    std::mutex m_lock;
    TQueryApi m_api; // this and all members below: guarded by m_lock
    const std::chrono::milliseconds m_timeout;
    const TClock m_clock;
    TFetch m_newest;
    std::chrono::steady_clock::time_point m_begun, m_ended;
    bool m_fetched = false;
};
