#include <algorithm>
#include <cerrno>
#include <exception>
#include <string_view>
#include <vector>

#include "platform/logging.h"
#include "platform/ssci.h"
#include "platform/stock/http/http_server.h"
#include "platform/stock/hub/hub.h"

namespace {

constexpr int kMaxWorkers = 64;

/* Paths of routes whose handlers may wait for something slow: a dump waits for the sampling round to end. Listed here
 * because the form of a resource is given by the appliance. */
constexpr std::string_view kMayWait[] = {"/sysmonService/statistics_dump"};

/* All routes of the process, added before main. */
std::vector<THttpRoute> &all_routes()
{
    static std::vector<THttpRoute> routes;
    return routes;
}

std::shared_ptr<httpserver::http_response> answer_health(bool (*health)(char *buffer, size_t size), size_t size)
{
    std::vector<char> buffer(size + 1); // with a closing NUL
    if (!health(buffer.data(), size))
        return std::make_shared<ssci_response>("", 503);
    return std::make_shared<ssci_response>(buffer.data(), 200);
}

struct TServer {
    TServer(const std::string &service, int listen_port, unsigned threads, const THttpPeer &name_server)
        : port(static_cast<uint16_t>(listen_port)), workers(threads),
          registration(name_server, "/nameserver/services/" + http_encode(service),
                       hub_address_text("localhost", listen_port))
    {
    }

    const uint16_t port;
    const unsigned workers;
    THubPresence registration;
    std::unique_ptr<THttpServer> http; // while it is up
};

/* The one server of this process; its functions are called by one thread. */
std::unique_ptr<TServer> g_server;

} // namespace

common_http_resource::common_http_resource(const char *path, ssci_handler get, ssci_handler put, ssci_handler post,
                                           ssci_handler del)
{
    const bool may_wait = std::find(std::begin(kMayWait), std::end(kMayWait), path) != std::end(kMayWait);
    all_routes().push_back({path, {get, put, post, del}, may_wait});
}

common_service_resource::common_service_resource(const char *name, bool (*health)(char *buffer, size_t size),
                                                 size_t size)
{
    all_routes().push_back({std::string("/") + name + "/health",
                            {[health, size](const httpserver::http_request &) { return answer_health(health, size); }},
                            false});
}

long long ssci_server_create(const char *name, const char *host, int port, int workers, const char *nameserver_host,
                             int nameserver_port, bool /*flag*/, int /*number*/, const char * /*text*/)
{
    if (name == nullptr || *name == '\0' || !http_is_local(host, port) || workers < 1 || workers > kMaxWorkers ||
        !http_is_local(nameserver_host, nameserver_port))
        return EINVAL;
    if (g_server != nullptr)
        return EEXIST;
    try {
        g_server = std::make_unique<TServer>(name, port, static_cast<unsigned>(workers),
                                             THttpPeer{nameserver_host, nameserver_port});
    } catch (const std::exception &) {
        return ENOMEM;
    }
    return 0;
}

long long ssci_server_start()
{
    if (g_server == nullptr)
        return EINVAL;
    if (g_server->http != nullptr)
        return EALREADY;
    try {
        auto http = std::make_unique<THttpServer>(all_routes(), THttpLimits());
        if (const int error = http->start(g_server->port, g_server->workers); error != 0)
            return error;
        g_server->http = std::move(http);
    } catch (const std::exception &) {
        return ENOMEM;
    }
    /* Without registration the service is still found at its well-known port. */
    if (const int error = g_server->registration.start("SSCI-register"); error != 0)
        log_Debug("the service cannot be registered: error %d", error);
    return 0;
}

long long ssci_server_stop()
{
    if (g_server == nullptr || g_server->http == nullptr)
        return 0;
    g_server->registration.request_stop(); // completes while the connections are closed
    g_server->http.reset();
    g_server->registration.join();
    return 0;
}

long long ssci_server_destory()
{
    g_server.reset(); // closes what is open
    return 0;
}
