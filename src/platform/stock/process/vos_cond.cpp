#include "platform/vos_cond.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/stock/process/call_wait.h"
#include "platform/stock/process/wait_deadline.h"

int vos_cond_wait_init(vos_cond_t *cond, int /*clock*/)
{
    const TLock guard(cond->mutex);
    cond->signalled = false;
    return 0;
}

int vos_cond_wait_ms(vos_cond_t *cond, uint64_t time_ms)
{
    const auto end = wait_deadline(std::chrono::steady_clock::now(), time_ms);
    const TLock guard(cond->mutex);
    while (!cond->signalled && cond->changed.wait_until(cond->mutex, end)) {
    }
    return std::exchange(cond->signalled, false) ? 0 : ETIMEDOUT;
}

int vos_cond_wait(vos_cond_t *cond, int seconds)
{
    return vos_cond_wait_ms(cond, static_cast<uint64_t>(std::max(seconds, 0)) * 1000);
}

int vos_cond_wait_signal(vos_cond_t *cond)
{
    {
        const TLock guard(cond->mutex);
        cond->signalled = true;
        cond->changed.notify_one();
    }
    call_waits_wake(); // a stop sets its flag before this signal
    return 0;
}

int vos_cond_wait_destroy(vos_cond_t * /*cond*/)
{
    return 0;
}
