#include "exporter/server.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <microhttpd.h>

namespace {

enum MHD_Result take_request(void *user, MHD_Connection *connection, const char *url, const char *method,
                             const char * /*version*/, const char * /*body*/, size_t *body_size, void **state)
{
    /* Answered in the second call, so that the connection is kept; a body is ignored. */
    static char seen = 0;
    if (*state == nullptr) {
        *state = &seen;
        return MHD_YES;
    }
    if (*body_size > 0) {
        *body_size = 0;
        return MHD_YES;
    }
    try {
        const TMetricsServer::TAnswer answer = static_cast<TMetricsServer *>(user)->answer(method, url);
        MHD_Response *const response = MHD_create_response_from_buffer(
            answer.body.size(), const_cast<char *>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
        if (response == nullptr)
            return MHD_NO;
        (void)MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type);
        const MHD_Result result = MHD_queue_response(connection, answer.status, response);
        MHD_destroy_response(response);
        return result;
    } catch (const std::exception &) { // out of memory: the connection is closed
        return MHD_NO;
    }
}

} // namespace

TMetricsServer::~TMetricsServer()
{
    if (m_daemon != nullptr)
        MHD_stop_daemon(m_daemon);
}

bool TMetricsServer::start(uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    m_daemon = MHD_start_daemon(MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL, port, nullptr, nullptr, take_request,
                                this, MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr *>(&address),
                                MHD_OPTION_CONNECTION_LIMIT, 16U, MHD_OPTION_CONNECTION_TIMEOUT, 10U,
                                MHD_OPTION_THREAD_STACK_SIZE, size_t{256} * 1024, MHD_OPTION_END);
    return m_daemon != nullptr;
}

uint16_t TMetricsServer::port() const
{
    const MHD_DaemonInfo *const info = MHD_get_daemon_info(m_daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info != nullptr ? info->port : 0;
}

TMetricsServer::TAnswer TMetricsServer::answer(const std::string &method, const std::string &path)
{
    if (path != "/metrics" && path != "/")
        return {404, "text/plain; charset=utf-8", "not found, see /metrics\n"};
    if (method != "GET" && method != "HEAD")
        return {405, "text/plain; charset=utf-8", "method not allowed\n"};
    if (path == "/")
        return {200, "text/plain; charset=utf-8", "velomond-exporter: see /metrics\n"};
    return {200, "text/plain; version=0.0.4; charset=utf-8", m_fetcher->text()};
}
