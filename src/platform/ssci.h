#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/httpserver.hpp"

/* The appliance's service-call library: services that answer JSON over HTTP on
 * the loopback host, found by name through the local name server. */

/* --- Server side --------------------------------------------------------- */

class ssci_response : public httpserver::string_response {
public:
    using httpserver::string_response::string_response;
};

using ssci_handler = std::shared_ptr<httpserver::http_response> (*)(const httpserver::http_request &);

/* One route: a path and a handler per HTTP method, null where the method is not served. Routes are constructed before
 * main and served for the life of the process; while the server is up their handlers are called on its request threads,
 * or on a separate thread where they may wait for long. */
class common_http_resource {
public:
    common_http_resource(const char *path, ssci_handler get, ssci_handler put = nullptr, ssci_handler post = nullptr,
                         ssci_handler del = nullptr);
};

/* The service as a whole: GET "/<name>/health" answers the text that `health`
 * writes into a buffer of `size` bytes. */
class common_service_resource {
public:
    common_service_resource(const char *name, bool (*health)(char *buffer, size_t size), size_t size);
};

/* Prepares the one server of this process: its name and port, the number of
 * request threads, and the name server to register with. Nothing listens yet.
 * All four return 0, else an error code. */
long long ssci_server_create(const char *name, const char *host, int port, int workers, const char *nameserver_host,
                             int nameserver_port, bool flag, int number, const char *text);
long long ssci_server_start();
long long ssci_server_stop();
long long ssci_server_destory();

/* A thread that can be stopped and joined. */
class TThread {
public:
    virtual ~TThread() = default;

    virtual int run() = 0;          // starts it; 0 or an error number
    virtual int stop(int mode) = 0; // wakes it after m_terminate was set
    virtual int wait() = 0;         // joins it; harmless when it never ran

    std::atomic<bool> m_terminate{false};
};

/* A session with the local hub: notices are sent under the service's name; with a route, run() maintains a subscription
 * that has notices of other services delivered there by PUT. */
class TNotifySessionManager : public TThread {
public:
    explicit TNotifySessionManager(const char *service, const char *route = "");
    ~TNotifySessionManager() override;
    TNotifySessionManager(const TNotifySessionManager &) = delete;
    TNotifySessionManager &operator=(const TNotifySessionManager &) = delete;

    int run() override;
    int stop(int mode) override;
    int wait() override;

    /* Sends one notice to all subscribers. Does not block: 0 means that the notice is queued for sending, even when the
     * session ends now; otherwise an error code of the client calls below. Any thread may call. */
    long long sendNotification(int category, int code, const char *text, int level);

private:
    struct TSession;
    std::unique_ptr<TSession> m_session;
};

/* --- Client side ---------------------------------------------------------
 *
 * Each call is bounded by `timeout_s` in all and by one second for connecting.
 * Results: 0 the peer answered with a 2xx status; 1 the service name is not
 * known; 2 the peer answered with another status; 3 transport error, described by
 * __ssci_errno and ssci_strerror (of the calling thread's last call); 4 wrong
 * arguments; 5 cancelled because the calling thread was asked to stop (interrupt.h),
 * which is not a fault of the peer. *answer is the body, at most 1 MiB, and is
 * only changed on 0 and on 2, where it is the body of the error response. */

/* Query arguments in order; sent URL-encoded. */
using ssci_params = std::vector<std::pair<std::string, std::string>>;

constexpr long long SSCI_OK = 0;
constexpr long long SSCI_UNKNOWN_SERVICE = 1;
constexpr long long SSCI_BAD_STATUS = 2;
constexpr long long SSCI_TRANSPORT_ERROR = 3;
constexpr long long SSCI_WRONG_ARGUMENTS = 4;
constexpr long long SSCI_CANCELLED = 5;

long long ssci_GET_request(const char *host, int port, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s);
long long ssci_DELETE_request(const char *host, int port, const char *path, const ssci_params &params,
                              std::string *answer, int timeout_s);
long long ssci_PUT_request(const char *host, int port, const char *path, const std::string &body, std::string *answer,
                           int timeout_s);
long long ssci_POST_request(const char *host, int port, const char *path, const std::string &body, std::string *answer,
                            int timeout_s);

/* The same by service name, looked up at the name server given here (and, where
 * that does not know it, among the well-known local services). */
long long ssci_nameserver_init(const char *host, int port);
long long ssci_GET_request(const char *service, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s);

int __ssci_errno();
const char *ssci_strerror(int code);
