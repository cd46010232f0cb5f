#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/httpserver.hpp"
#include "platform/stock/http/http_rules.h"
#include "platform/time_stamp.h"

using THttpHandler = std::function<std::shared_ptr<httpserver::http_response>(const httpserver::http_request &)>;

/* A path and its handlers; a method with an empty handler is rejected. Handlers that may wait run one at a time on a
 * separate thread: a request thread serves many connections, which would all wait with it. */
struct THttpRoute {
    std::string path;
    THttpHandler handlers[kHttpMethods.size()];
    bool may_wait = false;
};

struct THttpLimits {
    uint64_t phase_ms = 10'000; // to receive a request, idle time included, and to send its answer
    uint64_t crowded_ms = 500;  // the same from three quarters of the connections on
    unsigned connections = 128; // fewer with a low descriptor limit
    size_t head_bytes = 16384;  // request line and headers
    size_t body_bytes = 65536;
    size_t waiting = 32; // requests whose handler may wait
    uint64_t (*clock_ms)() = current_time_stamp_mono_r;
};

/* An HTTP server on 127.0.0.1. Requests that no handler answers get a small JSON body: 400 for a body with an ambiguous
 * end, 403 for a Host header other than the loopback's or a page of another site, 404 for an unknown path, 405 for a
 * method without handler, 413 for a body above the limit, 500 for a handler that threw, 503 when too many wait. */
class THttpServer {
public:
    /* Of two routes with the same path the first is used. */
    THttpServer(const std::vector<THttpRoute> &routes, const THttpLimits &limits);
    ~THttpServer();
    THttpServer(const THttpServer &) = delete;
    THttpServer &operator=(const THttpServer &) = delete;

    /* Listens on `port` (0: a free one) with `workers` request threads. Returns 0, or an error number; then nothing
     * listens. To be called once. */
    int start(uint16_t port, unsigned workers);

    /* Closes all connections. When it returns, no handler is running; client calls made by handlers are cancelled.
     * Harmless when nothing listens. */
    void stop();

    uint16_t port() const; // while it listens

    /* Ends the connections whose phase has lasted too long by now, as the server does
     * by itself when one can be due. Returns after how many ms the next one can be. */
    uint64_t cut_overdue();

    struct TState; // the source's own

private:
    std::unique_ptr<TState> m_state;
};
