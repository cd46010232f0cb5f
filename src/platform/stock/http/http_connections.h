#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "base/mutex.h"
#include "platform/httpserver.hpp"
#include "platform/stock/http/http_rules.h"

struct MHD_Connection;

/* One client of the server. All but the phase belongs to the request thread that serves the connection. */
struct THttpConnection {
    THttpConnection(int socket, uint64_t now_ms) : fd(socket), since_ms(now_ms) {}

    /* The phases: receiving a request, running its handler, sending its answer. */
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
    MHD_Connection *mhd = nullptr; // the library's handle
    /* Start of the present phase; 0 while a handler runs or waits for its turn, for which there is no limit. `sending`
     * is written before it and read before it, so that an old phase's time is never taken for a new one's. */
    std::atomic<uint64_t> since_ms;
    std::atomic<bool> sending{false};
    THttpHead head;                                    // of the request
    std::string body;                                  // of the request, as far as received
    bool waits = false;                                // for a handler on the thread for slow ones
    std::shared_ptr<httpserver::http_response> answer; // kept until it is sent
    std::list<THttpConnection>::iterator self;         // its position in the list
};

/* How long one phase of a client may last. */
struct THttpPatience {
    uint64_t usual_ms;
    uint64_t crowded_ms; // while there may be no room for others
    unsigned crowd;      // from this many connections on
};

/* The connected clients, to disconnect those that take too long: the library under the server only limits silence, a
 * limit that a client sending a byte now and then never reaches. */
class THttpConnections {
public:
    explicit THttpConnections(const THttpPatience &patience) : m_patience(patience) {}

    /* Null when out of memory. *crowded: whether this connection makes a crowd. */
    THttpConnection *add(int fd, uint64_t now_ms, bool *crowded);

    /* To be called while the descriptor is still open, so that `cut_overdue` never acts on a reused one. */
    void remove(THttpConnection *connection);

    /* Shuts down connections whose phase has lasted too long; the request thread then finds them ended and removes
     * them. Only the client's slowness counts: while we have not read what a client sent, or it has received all that
     * we sent, it waits for us and its phase restarts. `crowded` forces the shorter limit. Returns the time in
     * milliseconds until the next connection can be due. */
    uint64_t cut_overdue(uint64_t now_ms, bool crowded);

private:
    const THttpPatience m_patience;
    TMutex m_lock;
    std::list<THttpConnection> m_list GUARDED_BY(m_lock);
};
