#include "common/tick.h"

#include <vector>

#include "base/mutex.h"
#include "common/worker.h"

namespace {

struct {
    TMutex lock;
    bool is_ticking GUARDED_BY(lock) = false;
    std::vector<TTickWait *> waits GUARDED_BY(lock);
} g_ticks;

} // namespace

void tick_run()
{
    const TLock lock(g_ticks.lock);
    g_ticks.is_ticking = true;
    for (TTickWait *wait : g_ticks.waits) {
        if (wait->m_is_due())
            wait->m_worker.wake();
    }
}

void tick_end()
{
    const TLock lock(g_ticks.lock);
    g_ticks.is_ticking = false;
    for (TTickWait *wait : g_ticks.waits)
        wait->m_worker.wake();
}

TTickWait::TTickWait(TWorker *worker, const std::function<bool()> &is_due) : m_worker(*worker), m_is_due(is_due)
{
    const TLock lock(g_ticks.lock);
    g_ticks.waits.push_back(this);
    m_is_ticking = g_ticks.is_ticking;
}

TTickWait::~TTickWait()
{
    const TLock lock(g_ticks.lock);
    std::erase(g_ticks.waits, this);
}
