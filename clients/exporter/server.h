#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "exporter/fetcher.h"

struct MHD_Daemon;

/* HTTP on the loopback address: GET /metrics, and a short text at /. At most
 * 16 connections, each closed after 10 s without traffic. */
class TMetricsServer {
public:
    explicit TMetricsServer(TFetcher *fetcher) : m_fetcher(fetcher) {}
    ~TMetricsServer();
    TMetricsServer(const TMetricsServer &) = delete;
    TMetricsServer &operator=(const TMetricsServer &) = delete;

    /* False, with errno set, if it cannot listen on the port. Port 0: any free one. */
    bool start(uint16_t port);
    uint16_t port() const;

    /* The answer to one request: status and body. */
    struct TAnswer {
        unsigned status = 200;
        const char *type = "text/plain; charset=utf-8";
        std::string body;
    };
    TAnswer answer(const std::string &method, const std::string &path);

private:
    TFetcher *m_fetcher;
    MHD_Daemon *m_daemon = nullptr;
};
