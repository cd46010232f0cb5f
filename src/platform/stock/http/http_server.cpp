#include "platform/stock/http/http_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <exception>
#include <map>
#include <microhttpd.h>
#include <new>
#include <string_view>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <utility>

#include "base/text.h"
#include "base/thread.h"
#include "platform/interrupt.h"
#include "platform/logging.h"
#include "platform/stock/http/http_connections.h"
#include "platform/stock/http/mhd_request.h"
#include "platform/stock/hub/waiting_calls.h"

using TMhdResponse = std::shared_ptr<httpserver::http_response>;

struct THttpServer::TState {
    TState(const THttpLimits &given, unsigned places)
        : limits(given), connection_limit(places),
          connections({given.phase_ms, given.crowded_ms, std::max(1U, places - places / 4)}),
          waiting_calls(given.waiting)
    {
    }

    const THttpLimits limits;
    const unsigned connection_limit;
    std::map<std::string, THttpRoute, std::less<>> routes; // fixed while it listens
    THttpConnections connections;
    TBackgroundThread reaper;
    TWaitingCalls waiting_calls;
    std::atomic<unsigned> turned_away; // request threads with t_turned_away set
    std::atomic<bool> started;
    std::atomic<bool> stopping;
    MHD_Daemon *daemon = nullptr;
};

namespace {

constexpr rlim_t kOtherDescriptors = 64; // of the limit, for the rest of the process
constexpr size_t kBodyKept = 4096;       // buffer that a connection keeps for its next request
constexpr std::chrono::milliseconds kAcceptPause{100};
constexpr int kNoRoom[] = {EMFILE, ENFILE, ENOBUFS, ENOMEM}; // errors of accept

/* This request thread had no descriptor or memory for its last client. It then accepts no other until one of its
 * connections has ended. */
thread_local bool t_turned_away = false;

TMhdResponse refusal(int status, const char *why)
{
    return std::make_shared<httpserver::string_response>(std::string("{ \"error\": \"") + why + "\" }", status,
                                                         "application/json");
}

/* A 413 for a client that is still sending its body, when the library accepts no answer. */
constexpr std::string_view kBodyTooLarge = "HTTP/1.1 413 Content Too Large\r\n"
                                           "Connection: close\r\n"
                                           "Content-Type: application/json\r\n"
                                           "Content-Length: 29\r\n"
                                           "\r\n"
                                           "{ \"error\": \"body too large\" }";

std::string allowed_methods(const THttpRoute &route)
{
    std::string text;
    for (size_t method = 0; method < kHttpMethods.size(); ++method) {
        if (route.handlers[method])
            text.append(text.empty() ? "" : ", ").append(kHttpMethods[method]);
    }
    return text;
}

TMhdResponse call_handler(const THttpHandler &handler, const THttpConnection &connection, const std::string &path)
{
    TMhdResponse response;
    try {
        response = handler(TMhdRequest(connection.mhd, connection.body));
    } catch (const std::exception &failure) {
        log_Debug("%s: the handler failed: %s", path.c_str(), failure.what());
    } catch (...) {
        log_Debug("%s: the handler failed", path.c_str());
    }
    return response != nullptr ? response : refusal(500, "internal error");
}

/* Suspends the connection until the handler is done and has stored its answer in the connection; null for no answer. */
bool call_later(THttpServer::TState *server, THttpConnection *connection, const THttpRoute &route,
                const THttpHandler &handler)
{
    const auto call = [connection, &route, &handler](TWaitingCalls::TTurn turn) {
        try {
            if (turn == TWaitingCalls::kRun)
                connection->answer = call_handler(handler, *connection, route.path);
        } catch (const std::bad_alloc &) { // not even memory for an error answer
            log_Debug("%s: out of memory for an answer", route.path.c_str());
        }
        MHD_resume_connection(connection->mhd);
    };
    return server->waiting_calls.add(call, [connection] {
        connection->waits = true;
        MHD_suspend_connection(connection->mhd);
    });
}

/* Hands the answer to the library; `allow` lists the methods of the path when the requested one is not served. Its text
 * is not copied: the connection keeps the answer until the request is over. */
MHD_Result send_answer(const THttpServer::TState &server, THttpConnection *connection, TMhdResponse answer,
                       const std::string &allow = "")
{
    connection->answer = std::move(answer);
    connection->send(server.limits.clock_ms());
    const std::string &text = connection->answer->get_body();
    MHD_Response *response =
        MHD_create_response_from_buffer(text.size(), const_cast<char *>(text.data()), MHD_RESPMEM_PERSISTENT);
    if (response == nullptr)
        return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, connection->answer->get_content_type().c_str());
    if (!allow.empty())
        MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, allow.c_str());
    if (t_turned_away) // or clients that keep sending requests would lock all others out
        MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
    const auto status = static_cast<unsigned>(connection->answer->get_response_code());
    const MHD_Result result = MHD_queue_response(connection->mhd, status, response);
    MHD_destroy_response(response);
    return result;
}

/* Called when the head of a request was received. An answer at this point ends the connection, so it is only given when
 * the body is not going to be read. */
MHD_Result take_head(const THttpServer::TState &server, THttpConnection *connection)
{
    connection->head = mhd_head(connection->mhd);
    if (!connection->head.is_clear())
        return send_answer(server, connection, refusal(400, "end of body not clear"));
    if (connection->head.length > server.limits.body_bytes)
        return send_answer(server, connection, refusal(413, "body too large"));
    return MHD_YES;
}

MHD_Result take_body(const THttpServer::TState &server, THttpConnection *connection, const char *data, size_t *size)
{
    if (*size > server.limits.body_bytes - connection->body.size()) {
        (void)send(connection->fd, kBodyTooLarge.data(), kBodyTooLarge.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return MHD_NO;
    }
    connection->body.append(data, *size);
    *size = 0;
    return MHD_YES;
}

/* Answers at once, or later by way of call_later. */
MHD_Result decide(THttpServer::TState *server, THttpConnection *connection, const char *path, const char *method_name)
{
    if (!connection->head.host_is_local)
        return send_answer(*server, connection, refusal(403, "host refused"));
    if (!connection->head.page_is_local)
        return send_answer(*server, connection, refusal(403, "page refused"));
    const auto found = server->routes.find(std::string_view(path));
    if (found == server->routes.end())
        return send_answer(*server, connection, refusal(404, "unknown path"));
    const THttpRoute &route = found->second;
    size_t method = 0;
    while (method < kHttpMethods.size() && kHttpMethods[method] != method_name)
        ++method;
    if (method == kHttpMethods.size() || !route.handlers[method])
        return send_answer(*server, connection, refusal(405, "method not allowed"), allowed_methods(route));
    const THttpHandler &handler = route.handlers[method];
    if (!route.may_wait)
        return send_answer(*server, connection, call_handler(handler, *connection, route.path));
    return call_later(server, connection, route, handler)
               ? MHD_YES
               : send_answer(*server, connection, refusal(503, "too many wait"));
}

MHD_Result answer(THttpServer::TState *server, THttpConnection *connection, const char *path, const char *method)
{
    if (std::exchange(connection->waits, false)) // and the wait is over
        return connection->answer != nullptr ? send_answer(*server, connection, connection->answer) : MHD_NO;
    platform_interrupt_on(&server->stopping);
    connection->work();
    return decide(server, connection, path, method);
}

/* The library calls once after the head, for each piece of the body, and once more at the end; after a suspension it
 * repeats the last call. */
MHD_Result on_request(void *cls, MHD_Connection *mhd, const char *path, const char *method, const char * /*version*/,
                      const char *data, size_t *size, void **request_state)
{
    auto *server = static_cast<THttpServer::TState *>(cls);
    const MHD_ConnectionInfo *info = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    if (info == nullptr || info->socket_context == nullptr)
        return MHD_NO;
    auto *connection = static_cast<THttpConnection *>(info->socket_context);
    connection->mhd = mhd;
    try {
        if (std::exchange(*request_state, connection) == nullptr)
            return take_head(*server, connection);
        if (*size != 0)
            return take_body(*server, connection, data, size);
        return answer(server, connection, path, method);
    } catch (const std::exception &failure) {
        log_Debug("request dropped without an answer: %s", failure.what());
        return MHD_NO;
    }
}

void on_completed(void *cls, MHD_Connection * /*mhd*/, void **request_state, MHD_RequestTerminationCode /*why*/)
{
    auto *connection = static_cast<THttpConnection *>(*request_state);
    if (connection == nullptr)
        return;
    connection->answer.reset();
    connection->body.clear();
    if (connection->body.capacity() > kBodyKept)
        connection->body.shrink_to_fit();
    connection->receive(static_cast<THttpServer::TState *>(cls)->limits.clock_ms());
}

/* There is room again: a client was accepted, or one has left. */
void let_in(THttpServer::TState *server)
{
    if (std::exchange(t_turned_away, false))
        --server->turned_away;
}

/* The end is reported before the descriptor is closed. */
void on_connection(void *cls, MHD_Connection *mhd, void **socket_context, MHD_ConnectionNotificationCode what)
{
    auto *server = static_cast<THttpServer::TState *>(cls);
    let_in(server);
    if (what == MHD_CONNECTION_NOTIFY_STARTED) {
        const MHD_ConnectionInfo *info = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_CONNECTION_FD);
        bool crowded = false;
        if (info != nullptr)
            *socket_context = server->connections.add(info->connect_fd, server->limits.clock_ms(), &crowded);
        if (crowded)
            server->reaper.wake();
    } else if (*socket_context != nullptr) {
        server->connections.remove(static_cast<THttpConnection *>(*socket_context));
    }
}

/* The library's error log, called on the thread with the error. A client that cannot be accepted for lack of a
 * descriptor or memory stays in the queue, and the library would retry at once in a busy loop. */
void on_trouble(void *cls, const char * /*format*/, va_list /*arguments*/)
{
    auto *server = static_cast<THttpServer::TState *>(cls);
    const int error = errno;
    if (!server->started || std::find(std::begin(kNoRoom), std::end(kNoRoom), error) == std::end(kNoRoom))
        return;
    if (!std::exchange(t_turned_away, true) && server->turned_away++ == 0)
        log_Debug("new connections are not accepted: %s", error_text(error).c_str());
    server->reaper.wake();
    std::this_thread::sleep_for(kAcceptPause);
    errno = 0; // the library may log the same failure again
}

unsigned connection_limit(unsigned wanted)
{
    struct rlimit descriptors = {};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0 && descriptors.rlim_cur < kOtherDescriptors + wanted) {
        const rlim_t left = descriptors.rlim_cur > kOtherDescriptors ? descriptors.rlim_cur - kOtherDescriptors : 0;
        wanted = static_cast<unsigned>(left);
    }
    return wanted;
}

} // namespace

THttpServer::THttpServer(const std::vector<THttpRoute> &routes, const THttpLimits &limits)
    : m_state(std::make_unique<TState>(limits, connection_limit(limits.connections)))
{
    for (const THttpRoute &route : routes)
        m_state->routes.try_emplace(route.path, route);
}

THttpServer::~THttpServer()
{
    stop();
}

int THttpServer::start(uint16_t port, unsigned workers)
{
    int error = m_state->reaper.start("SSCI-reaper", [this] {
        for (uint64_t next_ms = 0; m_state->reaper.wait_ms(next_ms);)
            next_ms = cut_overdue();
    });
    if (error == 0)
        error = m_state->waiting_calls.start("SSCI-waiting");

    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const TSignalsHeld held; // request threads block signals
    errno = 0;
    if (error == 0)
        m_state->daemon = MHD_start_daemon(
            MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME | MHD_USE_ERROR_LOG, port, nullptr, nullptr,
            on_request, m_state.get(),                                                 //
            MHD_OPTION_EXTERNAL_LOGGER, on_trouble, m_state.get(),                     // first, to log all errors
            MHD_OPTION_SOCK_ADDR, &address,                                            //
            MHD_OPTION_CONNECTION_LIMIT, std::max(m_state->connection_limit, workers), // at least one per thread
            MHD_OPTION_CONNECTION_MEMORY_LIMIT, m_state->limits.head_bytes,            //
            MHD_OPTION_THREAD_STACK_SIZE, kThreadStack,                                //
            MHD_OPTION_NOTIFY_COMPLETED, on_completed, m_state.get(),                  //
            MHD_OPTION_NOTIFY_CONNECTION, on_connection, m_state.get(),                //
            MHD_OPTION_THREAD_POOL_SIZE, workers,                                      // of 1: no pool
            MHD_OPTION_END);
    m_state->started = m_state->daemon != nullptr;
    if (m_state->started)
        return 0;
    if (error == 0)
        error = errno != 0 ? errno : EIO;
    return error;
}

void THttpServer::stop()
{
    m_state->stopping = true;
    m_state->waiting_calls.stop(); // the library must not be stopped with a suspended connection
    MHD_stop_daemon(m_state->daemon);
    m_state->daemon = nullptr;
    m_state->reaper.stop();
}

uint64_t THttpServer::cut_overdue()
{
    return m_state->connections.cut_overdue(m_state->limits.clock_ms(), m_state->turned_away > 0);
}

uint16_t THttpServer::port() const
{
    const MHD_DaemonInfo *info = MHD_get_daemon_info(m_state->daemon, MHD_DAEMON_INFO_BIND_PORT);
    return info != nullptr ? info->port : 0;
}
