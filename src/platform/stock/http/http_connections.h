#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "platform/httpserver.hpp"
#include "platform/stock/http/http_rules.h"

/* One client of the server. All but the phase belongs to the request thread that
 * serves the connection. */
struct T_HTTP_CONNECTION {
    T_HTTP_CONNECTION(int socket, uint64_t now_ms) : fd(socket), since_ms(now_ms) {}

    /* The phases: receiving a request, a handler at work, sending its answer. */
    void receive(uint64_t now_ms)
    {
        sending = false;
        since_ms = now_ms;
    }
    void work() { since_ms = 0; }
    void send(uint64_t now_ms)
    {
        sending = true;
        since_ms = now_ms;
    }

    const int fd;
    /* When the present phase began; 0 while a handler runs or waits for its turn,
     * which may take as long as it likes. `sending` is written before it and read
     * before it, so that an old phase's time is never taken for a new one's. */
    std::atomic<uint64_t> since_ms;
    std::atomic<bool> sending{false};
    T_HTTP_HEAD head;                                  // of the request
    std::string body;                                  // of the request, as far as it has come
    bool waits = false;                                // for a handler on the thread of those that take long
    std::shared_ptr<httpserver::http_response> answer; // lives until it is sent
    std::list<T_HTTP_CONNECTION>::iterator self;       // its place in the table
};

/* How long one phase of a client may last. */
struct T_HTTP_PATIENCE {
    uint64_t usual_ms = 10'000;
    uint64_t crowded_ms = 500; // while others may find no room
    unsigned crowd = 96;       // from so many connections on
};

/* The clients that are connected, for cutting off those that take too long: the
 * library under the server only knows a limit for silence, which a client that
 * sends a byte now and then never reaches. */
class THttpConnections {
public:
    explicit THttpConnections(const T_HTTP_PATIENCE &patience) : m_patience(patience) {}

    /* Null when there is no memory for it. *crowded: whether this one makes it a crowd. */
    T_HTTP_CONNECTION *add(int fd, uint64_t now_ms, bool *crowded);

    /* To be called while the descriptor is still open, so that `cut_overdue`
     * never meets one that has become somebody else's. */
    void remove(T_HTTP_CONNECTION *connection);

    /* Ends those whose phase has lasted too long: the request thread finds them
     * ended and removes them. Only the client's slowness counts: one that has sent
     * what we have not read yet, or has taken all we sent, waits for us, and its
     * phase begins anew. `crowded`: as if there were too many. Returns after how
     * many milliseconds the next one can be due. */
    uint64_t cut_overdue(uint64_t now_ms, bool crowded);

private:
    const T_HTTP_PATIENCE m_patience;
    TMutex m_lock;
    std::list<T_HTTP_CONNECTION> m_list GUARDED_BY(m_lock);
};
