#include "platform/stock/http_connections.h"

#include <algorithm>
#include <new>
#include <sys/socket.h>

T_HTTP_CONNECTION *THttpConnections::add(int fd, uint64_t now_ms)
{
    try {
        std::list<T_HTTP_CONNECTION> one;
        one.emplace_front(fd, now_ms);
        one.front().self = one.begin();
        const std::lock_guard<std::mutex> guard(m_lock);
        m_list.splice(m_list.begin(), one);
        return &m_list.front();
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void THttpConnections::remove(T_HTTP_CONNECTION *connection)
{
    std::list<T_HTTP_CONNECTION> gone; // released after the lock
    const std::lock_guard<std::mutex> guard(m_lock);
    gone.splice(gone.begin(), m_list, connection->self);
}

uint64_t THttpConnections::cut_overdue(uint64_t now_ms, uint64_t limit_ms)
{
    uint64_t next_ms = limit_ms; // a phase that begins from now on ends no sooner
    const std::lock_guard<std::mutex> guard(m_lock);
    for (const T_HTTP_CONNECTION &connection : m_list) {
        const uint64_t since_ms = connection.since_ms;
        if (since_ms == 0)
            continue;
        const uint64_t lasted_ms = now_ms > since_ms ? now_ms - since_ms : 0;
        if (lasted_ms >= limit_ms)
            (void)shutdown(connection.fd, SHUT_RDWR);
        else
            next_ms = std::min(next_ms, limit_ms - lasted_ms);
    }
    return next_ms;
}
