#include "platform/stock/http_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <map>
#include <microhttpd.h>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <utility>

#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/stock/background_thread.h"
#include "platform/stock/http_connections.h"
#include "platform/time_stamp.h"

using T_RESPONSE = std::shared_ptr<httpserver::http_response>;

struct THttpServer::T_STATE {
    explicit T_STATE(const T_HTTP_LIMITS &given) : limits(given) {}

    const T_HTTP_LIMITS limits;
    std::map<std::string, T_HTTP_ROUTE, std::less<>> routes; // fixed while it listens
    THttpConnections connections;
    TBackgroundThread reaper;
    std::atomic<bool> stopping{false};
    MHD_Daemon *daemon = nullptr;
};

namespace {

constexpr rlim_t kOtherDescriptors = 64; // of the limit, for the rest of the process
constexpr size_t kBodyKept = 4096;       // buffer that a connection keeps for its next request

/* What a request is answered with; `allow` tells the methods of a path where the
 * one asked for is not served. */
struct T_DECISION {
    T_RESPONSE response;
    std::string allow;
};

T_RESPONSE refusal(int status, const char *why)
{
    return std::make_shared<httpserver::string_response>(std::string("{ \"error\": \"") + why + "\" }", status,
                                                         "application/json");
}

/* A 413 for a client in the middle of its body, where the library takes no answer. */
constexpr std::string_view kBodyTooLarge = "HTTP/1.1 413 Content Too Large\r\n"
                                           "Connection: close\r\n"
                                           "Content-Type: application/json\r\n"
                                           "Content-Length: 29\r\n"
                                           "\r\n"
                                           "{ \"error\": \"body too large\" }";

class TRequest : public httpserver::http_request {
public:
    TRequest(MHD_Connection *mhd, const std::string &body) : m_mhd(mhd), m_body(body) {}

    /* The library's own lookup would take "METHOD" for "method". */
    std::string get_arg(const std::string &key) const override
    {
        struct T_SEARCH {
            std::string_view key;
            const char *value = nullptr;
        } search = {key};
        const auto look = [](void *cls, MHD_ValueKind, const char *name, size_t name_size, const char *value, size_t) {
            auto *wanted = static_cast<T_SEARCH *>(cls);
            if (std::string_view(name, name_size) != wanted->key)
                return MHD_YES;
            wanted->value = value != nullptr ? value : "";
            return MHD_NO;
        };
        MHD_get_connection_values_n(m_mhd, MHD_GET_ARGUMENT_KIND, look, &search);
        return search.value != nullptr ? search.value : "";
    }

    std::string get_content() const override { return m_body; }

private:
    MHD_Connection *m_mhd;
    const std::string &m_body;
};

/* All of them count: where there are two it is not known which one a program in
 * between went by. */
bool hosts_are_local(MHD_Connection *mhd)
{
    bool local = true;
    const auto look = [](void *cls, MHD_ValueKind, const char *name, size_t name_size, const char *value,
                         size_t value_size) {
        constexpr std::string_view kHost = "Host";
        if (name_size != kHost.size() || strncasecmp(name, kHost.data(), name_size) != 0)
            return MHD_YES;
        *static_cast<bool *>(cls) = value != nullptr && http_host_is_local({value, value_size});
        return *static_cast<bool *>(cls) ? MHD_YES : MHD_NO;
    };
    MHD_get_connection_values_n(mhd, MHD_HEADER_KIND, look, &local);
    return local;
}

std::string allowed_methods(const T_HTTP_ROUTE &route)
{
    std::string text;
    for (int method = HTTP_GET; method < HTTP_METHODS; ++method) {
        if (route.handlers[method])
            text.append(text.empty() ? "" : ", ").append(kHttpMethods[method]);
    }
    return text;
}

T_RESPONSE call_handler(const T_HTTP_HANDLER &handler, const TRequest &request, const char *path)
{
    T_RESPONSE response;
    try {
        response = handler(request);
    } catch (const std::exception &failure) {
        log_Debug("%s: the handler failed: %s", path, failure.what());
    } catch (...) {
        log_Debug("%s: the handler failed", path);
    }
    return response != nullptr ? response : refusal(500, "internal error");
}

T_DECISION decide(const THttpServer::T_STATE &server, MHD_Connection *mhd, const char *path, const char *method_name,
                  const std::string &body)
{
    if (!hosts_are_local(mhd))
        return {refusal(403, "host refused"), ""};
    const auto found = server.routes.find(std::string_view(path));
    if (found == server.routes.end())
        return {refusal(404, "unknown path"), ""};
    const T_HTTP_ROUTE &route = found->second;
    const T_HTTP_METHOD method = http_method(method_name);
    if (method == HTTP_METHODS || !route.handlers[method])
        return {refusal(405, "method not allowed"), allowed_methods(route)};
    return {call_handler(route.handlers[method], TRequest(mhd, body), path), ""};
}

/* Hands the answer to the library. Its text is not copied: the connection keeps
 * the answer until the request is over. */
MHD_Result send_answer(T_HTTP_CONNECTION *connection, MHD_Connection *mhd, T_DECISION decision)
{
    connection->answer = std::move(decision.response);
    const std::string &text = connection->answer->get_body();
    MHD_Response *response =
        MHD_create_response_from_buffer(text.size(), const_cast<char *>(text.data()), MHD_RESPMEM_PERSISTENT);
    if (response == nullptr)
        return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, connection->answer->get_content_type().c_str());
    if (!decision.allow.empty())
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, decision.allow.c_str());
    const auto status = static_cast<unsigned>(connection->answer->get_response_code());
    const MHD_Result result = MHD_queue_response(mhd, status, response);
    MHD_destroy_response(response);
    return result;
}

/* The head of a request is there. Only a body that is going to be too large is
 * answered now: an answer at this point ends the connection. */
MHD_Result take_head(const THttpServer::T_STATE &server, T_HTTP_CONNECTION *connection, MHD_Connection *mhd)
{
    const char *length = MHD_lookup_connection_value(mhd, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_LENGTH);
    if (length == nullptr || strtoull(length, nullptr, 10) <= server.limits.body_bytes)
        return MHD_YES;
    return send_answer(connection, mhd, {refusal(413, "body too large"), ""});
}

MHD_Result take_body(const THttpServer::T_STATE &server, T_HTTP_CONNECTION *connection, const char *data, size_t *size)
{
    if (*size > server.limits.body_bytes - connection->body.size()) {
        (void)send(connection->fd, kBodyTooLarge.data(), kBodyTooLarge.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return MHD_NO;
    }
    connection->body.append(data, *size);
    *size = 0;
    return MHD_YES;
}

MHD_Result answer(const THttpServer::T_STATE &server, T_HTTP_CONNECTION *connection, MHD_Connection *mhd,
                  const char *path, const char *method)
{
    platform_interrupt_on(&server.stopping);
    connection->since_ms = 0;
    T_DECISION decision = decide(server, mhd, path, method, connection->body);
    connection->since_ms = current_time_stamp_mono_r();
    return send_answer(connection, mhd, std::move(decision));
}

/* The library calls once when the head is there, for each piece of the body, and
 * once more at the end. */
MHD_Result on_request(void *cls, MHD_Connection *mhd, const char *path, const char *method, const char * /*version*/,
                      const char *data, size_t *size, void **request_state)
{
    auto *server = static_cast<THttpServer::T_STATE *>(cls);
    const MHD_ConnectionInfo *info = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    if (info == nullptr || info->socket_context == nullptr)
        return MHD_NO;
    auto *connection = static_cast<T_HTTP_CONNECTION *>(info->socket_context);
    try {
        if (std::exchange(*request_state, connection) == nullptr)
            return take_head(*server, connection, mhd);
        if (*size != 0)
            return take_body(*server, connection, data, size);
        return answer(*server, connection, mhd, path, method);
    } catch (const std::exception &failure) {
        log_Debug("%s: no answer: %s", path, failure.what());
        return MHD_NO;
    }
}

void on_completed(void * /*cls*/, MHD_Connection * /*mhd*/, void **request_state, MHD_RequestTerminationCode /*why*/)
{
    auto *connection = static_cast<T_HTTP_CONNECTION *>(*request_state);
    if (connection == nullptr)
        return;
    connection->answer.reset();
    connection->body.clear();
    if (connection->body.capacity() > kBodyKept)
        connection->body.shrink_to_fit();
    connection->since_ms = current_time_stamp_mono_r();
}

/* The end is told before the descriptor is closed. */
void on_connection(void *cls, MHD_Connection *mhd, void **socket_context, MHD_ConnectionNotificationCode what)
{
    auto *server = static_cast<THttpServer::T_STATE *>(cls);
    if (what == MHD_CONNECTION_NOTIFY_STARTED) {
        const MHD_ConnectionInfo *info = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_CONNECTION_FD);
        if (info != nullptr)
            *socket_context = server->connections.add(info->connect_fd, current_time_stamp_mono_r());
    } else if (*socket_context != nullptr) {
        server->connections.remove(static_cast<T_HTTP_CONNECTION *>(*socket_context));
        *socket_context = nullptr;
    }
}

unsigned connection_limit(unsigned wanted, unsigned workers)
{
    struct rlimit descriptors = {};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0 && descriptors.rlim_cur < kOtherDescriptors + wanted) {
        const rlim_t left = descriptors.rlim_cur > kOtherDescriptors ? descriptors.rlim_cur - kOtherDescriptors : 0;
        wanted = static_cast<unsigned>(left);
    }
    return std::max(wanted, workers); // the library gives each thread its share
}

void cut_slow_clients(THttpServer::T_STATE *server)
{
    uint64_t next_ms = 0;
    while (server->reaper.wait_ms(next_ms))
        next_ms = server->connections.cut_overdue(current_time_stamp_mono_r(), server->limits.phase_ms);
}

} // namespace

THttpServer::THttpServer(const std::vector<T_HTTP_ROUTE> &routes, const T_HTTP_LIMITS &limits)
    : m_state(std::make_unique<T_STATE>(limits))
{
    for (const T_HTTP_ROUTE &route : routes)
        m_state->routes.try_emplace(route.path, route);
}

THttpServer::~THttpServer()
{
    stop();
}

int THttpServer::start(uint16_t port, unsigned workers)
{
    if (m_state->daemon != nullptr)
        return EALREADY;
    m_state->stopping = false;
    if (const int error = m_state->reaper.start("SSCI-reaper", [this] { cut_slow_clients(m_state.get()); }); error != 0)
        return error;

    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const TSignalsHeld held; // the request threads take no signals
    errno = 0;
    m_state->daemon = MHD_start_daemon(
        MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC, port, nullptr, nullptr, on_request, m_state.get(),
        MHD_OPTION_SOCK_ADDR, &address,                                                       //
        MHD_OPTION_CONNECTION_LIMIT, connection_limit(m_state->limits.connections, workers),  //
        MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_state->limits.head_bytes,                       //
        MHD_OPTION_NOTIFY_COMPLETED, on_completed, m_state.get(),                             //
        MHD_OPTION_NOTIFY_CONNECTION, on_connection, m_state.get(),                           //
        workers > 1 ? MHD_OPTION_THREAD_POOL_SIZE : MHD_OPTION_END, workers, MHD_OPTION_END); // one thread is no pool
    if (m_state->daemon != nullptr)
        return 0;
    const int error = errno != 0 ? errno : EIO;
    m_state->reaper.stop();
    return error;
}

void THttpServer::stop()
{
    if (m_state->daemon == nullptr)
        return;
    m_state->stopping = true;
    MHD_stop_daemon(m_state->daemon);
    m_state->daemon = nullptr;
    m_state->reaper.stop();
}

uint16_t THttpServer::port() const
{
    const MHD_DaemonInfo *info = MHD_get_daemon_info(m_state->daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info != nullptr ? info->port : 0;
}
