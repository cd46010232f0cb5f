#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "platform/httpserver.hpp"

/* One client of the server. All but `since_ms` belongs to the request thread
 * that serves the connection. */
struct T_HTTP_CONNECTION {
    T_HTTP_CONNECTION(int socket, uint64_t now_ms) : fd(socket), since_ms(now_ms) {}

    const int fd;
    /* When the present phase began, receiving a request or sending an answer; 0
     * while a handler runs, which may take as long as it likes. */
    std::atomic<uint64_t> since_ms;
    std::string body;                                  // of the request, as far as it has come
    std::shared_ptr<httpserver::http_response> answer; // lives until it is sent
    std::list<T_HTTP_CONNECTION>::iterator self;       // its place in the table
};

/* The clients that are connected, for cutting off those that take too long: the
 * library under the server only knows a limit for silence, which a client that
 * sends a byte now and then never reaches. */
class THttpConnections {
public:
    /* Null when there is no memory for it. */
    T_HTTP_CONNECTION *add(int fd, uint64_t now_ms);

    /* To be called while the descriptor is still open, so that `cut_overdue`
     * never meets one that has become somebody else's. */
    void remove(T_HTTP_CONNECTION *connection);

    /* Shuts down the sockets of all whose phase has lasted `limit_ms`; whoever
     * serves them finds them ended and removes them. Returns after how many
     * milliseconds the next one can be due. */
    uint64_t cut_overdue(uint64_t now_ms, uint64_t limit_ms);

private:
    std::mutex m_lock;
    std::list<T_HTTP_CONNECTION> m_list; // guarded by m_lock
};
