#include <algorithm>
#include <cstdio>

#include "fake_platform/scripts.h"

using fake::state;
using fake::T_REQUEST;

namespace {

struct T_ROUTE {
    const common_http_resource *owner;
    std::string path;
    std::map<std::string, ssci_handler> handlers;
};

/* Filled before main, so neither in the state nor reset. */
std::vector<T_ROUTE> &routes()
{
    static auto &all = *new std::vector<T_ROUTE>;
    return all;
}

struct T_HEALTH {
    bool (*callback)(char *buffer, size_t size) = nullptr;
    size_t size = 0;
} g_health;

class TRequest : public httpserver::http_request {
public:
    TRequest(std::map<std::string, std::string> args, std::string body)
        : m_args(std::move(args)), m_body(std::move(body))
    {
    }
    std::string get_arg(const std::string &key) const override
    {
        const auto found = m_args.find(key);
        return found != m_args.end() ? found->second.c_str() : "";
    }
    std::string get_content() const override { return m_body; }

private:
    std::map<std::string, std::string> m_args;
    std::string m_body;
};

void record_call(const std::string &text)
{
    const std::lock_guard guard(fake::scripts().lock);
    fake::scripts().service_calls.push_back(text);
}

long long ask(const T_REQUEST &request, std::string *answer)
{
    const auto script = copy_of(&fake::T_SCRIPTS::request);
    {
        const std::lock_guard guard(fake::scripts().lock);
        fake::scripts().requests.push_back(request);
    }
    std::string text;
    const long long result = script ? script(request, &text) : SSCI_TRANSPORT_ERROR;
    if (result == SSCI_OK && answer != nullptr)
        *answer = text;
    return result;
}

} // namespace

std::vector<T_REQUEST> fake::requests()
{
    return copy_of(&T_SCRIPTS::requests);
}

void fake::on_request(std::function<long long(const T_REQUEST &, std::string *)> script)
{
    const std::lock_guard guard(scripts().lock);
    scripts().request = std::move(script);
}

std::vector<std::string> fake::route_paths()
{
    std::vector<std::string> paths;
    for (const T_ROUTE &route : routes())
        paths.push_back(route.path);
    return paths;
}

std::vector<std::string> fake::service_calls()
{
    return copy_of(&T_SCRIPTS::service_calls);
}

std::string fake::health_text()
{
    std::string text(g_health.size, '\0');
    return g_health.callback != nullptr && g_health.callback(text.data(), text.size()) ? text.c_str() : "";
}

std::optional<fake::T_REPLY> fake::call_route(const std::string &method, const std::string &path,
                                              const std::map<std::string, std::string> &args, const std::string &body)
{
    const auto route =
        std::find_if(routes().begin(), routes().end(), [&](const T_ROUTE &one) { return one.path == path; });
    if (route == routes().end() || route->handlers[method] == nullptr)
        return std::nullopt;
    const auto reply = route->handlers[method](TRequest(args, body));
    if (reply == nullptr)
        return std::nullopt;
    return T_REPLY{reply->get_response_code(), reply->get_content_type(), reply->get_body()};
}

common_http_resource::common_http_resource(const char *path, ssci_handler get, ssci_handler put, ssci_handler post,
                                           ssci_handler del)
{
    routes().push_back({this, path, {{"GET", get}, {"PUT", put}, {"POST", post}, {"DELETE", del}}});
}

common_http_resource::~common_http_resource()
{
    std::erase_if(routes(), [this](const T_ROUTE &one) { return one.owner == this; });
}

common_service_resource::common_service_resource(const char * /*name*/, bool (*health)(char *, size_t), size_t size)
{
    g_health = {health, size};
}

common_service_resource::~common_service_resource()
{
    g_health = {};
}

long long ssci_server_create(const char *name, const char *host, int port, int workers, const char *nameserver_host,
                             int nameserver_port, bool /*flag*/, int /*number*/, const char * /*text*/)
{
    record_call(std::string("create ") + name + " " + host + " " + std::to_string(port) + " " +
                std::to_string(workers) + " " + nameserver_host + " " + std::to_string(nameserver_port));
    return state()->create_result;
}

long long ssci_server_start()
{
    record_call("start");
    return state()->start_result;
}

long long ssci_server_stop()
{
    record_call("stop");
    return state()->stop_result;
}

long long ssci_server_destory()
{
    record_call("destory");
    return state()->destroy_result;
}

struct TNotifySessionManager::T_SESSION {
    std::string service, route;
};

TNotifySessionManager::TNotifySessionManager(const char *service, const char *route)
    : m_session(new T_SESSION{service, route})
{
}

TNotifySessionManager::~TNotifySessionManager() = default;

int TNotifySessionManager::run()
{
    record_call("session run " + m_session->service + " " + m_session->route);
    return 0;
}

int TNotifySessionManager::stop(int mode)
{
    record_call("session stop " + std::to_string(mode));
    return 0;
}

int TNotifySessionManager::wait()
{
    record_call("session wait");
    return 0;
}

long long TNotifySessionManager::sendNotification(int category, int code, const char *text, int level)
{
    state()->notices.push_back({m_session->service, category, code, text, level});
    return state()->notice_result;
}

long long ssci_GET_request(const char *host, int port, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s)
{
    return ask({"GET", host, port, path, params, "", timeout_s}, answer);
}

long long ssci_DELETE_request(const char *host, int port, const char *path, const ssci_params &params,
                              std::string *answer, int timeout_s)
{
    return ask({"DELETE", host, port, path, params, "", timeout_s}, answer);
}

long long ssci_PUT_request(const char *host, int port, const char *path, const std::string &body, std::string *answer,
                           int timeout_s)
{
    return ask({"PUT", host, port, path, {}, body, timeout_s}, answer);
}

long long ssci_POST_request(const char *host, int port, const char *path, const std::string &body, std::string *answer,
                            int timeout_s)
{
    return ask({"POST", host, port, path, {}, body, timeout_s}, answer);
}

long long ssci_nameserver_init(const char *host, int port)
{
    record_call(std::string("nameserver ") + host + " " + std::to_string(port));
    return state()->nameserver_result;
}

long long ssci_GET_request(const char *service, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s)
{
    return ask({"GET", service, 0, path, params, "", timeout_s}, answer);
}

int __ssci_errno()
{
    return state()->ssci_error;
}

const char *ssci_strerror(int /*code*/)
{
    thread_local char text[64]; // good until this thread's next call
    snprintf(text, sizeof(text), "%s", state()->ssci_error_text.c_str());
    return text;
}
