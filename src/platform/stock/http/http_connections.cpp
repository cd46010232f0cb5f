#include "platform/stock/http/http_connections.h"

#include <algorithm>
#include <linux/sockios.h>
#include <new>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

/* Whether the client waits for us: there is data to read, or everything sent so far was received. */
bool waits_for_us(int fd, bool sending)
{
    int bytes = 0;
    return ioctl(fd, sending ? SIOCOUTQ : SIOCINQ, &bytes) == 0 && (bytes == 0) == sending;
}

} // namespace

THttpConnection *THttpConnections::add(int fd, uint64_t now_ms, bool *crowded)
{
    try {
        const TLock guard(m_lock);
        THttpConnection &connection = m_list.emplace_front(fd, now_ms);
        connection.self = m_list.begin();
        *crowded = m_list.size() == m_patience.crowd;
        return &connection;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void THttpConnections::remove(THttpConnection *connection)
{
    std::list<THttpConnection> gone; // freed after unlocking
    const TLock guard(m_lock);
    gone.splice(gone.begin(), m_list, connection->self);
}

uint64_t THttpConnections::cut_overdue(uint64_t now_ms, bool crowded)
{
    const TLock guard(m_lock);
    crowded = crowded || m_list.size() >= m_patience.crowd;
    const uint64_t limit_ms = crowded ? m_patience.crowded_ms : m_patience.usual_ms;
    uint64_t next_ms = limit_ms; // a phase that begins from now on ends no sooner
    for (THttpConnection &connection : m_list) {
        const bool sending = connection.sending;
        uint64_t since_ms = connection.since_ms;
        if (since_ms == 0)
            continue;
        const uint64_t lasted_ms = now_ms > since_ms ? now_ms - since_ms : 0;
        if (lasted_ms < limit_ms) {
            next_ms = std::min(next_ms, limit_ms - lasted_ms);
        } else if (waits_for_us(connection.fd, sending)) {
            connection.since_ms.compare_exchange_strong(since_ms, now_ms); // fails if the phase has ended
        } else {
            /* With only the receiving side shut down, a request that was completed just now is still read and
             * answered. */
            (void)shutdown(connection.fd, sending ? SHUT_RDWR : SHUT_RD);
            next_ms = std::min(next_ms, m_patience.crowded_ms); // check that it has ended
        }
    }
    return next_ms;
}
