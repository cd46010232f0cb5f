#include "exporter/fetcher.h"

#include <cstdio>
#include <utility>

TFetcher::TFetcher(TAddress address, std::chrono::milliseconds timeout, TClock clock)
    : m_api(std::move(address)), m_timeout(timeout), m_clock(std::move(clock))
{
}

void TFetcher::fetch()
{
    m_begun = m_clock();
    TFetch fetch;
    m_api.begin(m_timeout);
    const TOutcome outcome = snapshot_fetch(&m_api, &fetch.snapshot);
    fetch.error = outcome.text;
    m_ended = m_clock();
    fetch.duration_s = std::chrono::duration<double>(m_ended - m_begun).count();
    if (!outcome.ok() && (!m_fetched || m_newest.error != fetch.error)) // once, not with each scrape
        (void)fprintf(stderr, "velomond-exporter: %s\n", fetch.error.c_str());
    if (outcome.ok() && !m_newest.error.empty())
        (void)fprintf(stderr, "velomond-exporter: the monitor answers again\n");
    m_newest = std::move(fetch);
    m_fetched = true;
}

std::string TFetcher::text()
{
    const std::lock_guard<std::mutex> guard(m_lock);
    if (!m_fetched || m_clock() - m_begun >= kRound)
        fetch();
    m_newest.age_s = std::chrono::duration<double>(m_clock() - m_ended).count();
    return metrics_text(metrics_of(m_newest));
}
