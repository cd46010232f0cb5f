#include <map>
#include <utility>

#include "base/text.h"
#include "fake_platform/fake_platform.h"

using fake::state;
using fake::TRequest;

namespace {

/* By method and path. Filled before main, so they are not in the state and never reset. */
std::map<std::pair<std::string, std::string>, ssci_handler> &handlers()
{
    static auto &all = *new std::map<std::pair<std::string, std::string>, ssci_handler>;
    return all;
}

class TScriptedRequest : public httpserver::http_request {
public:
    TScriptedRequest(const std::map<std::string, std::string> &args, const std::string &body)
        : m_args(args), m_body(body)
    {
    }
    std::string get_arg(const std::string &key) const override
    {
        return m_args.contains(key) ? m_args.at(key).c_str() : "";
    }
    std::string get_content() const override { return m_body; }

private:
    std::map<std::string, std::string> m_args;
    std::string m_body;
};

long long ask(const TRequest &request, std::string *answer)
{
    const auto script = state()->request;
    state()->requests.push_back(request);
    std::string text;
    const long long result = script ? script(request, &text) : SSCI_TRANSPORT_ERROR;
    if (answer != nullptr && (result == SSCI_OK || result == SSCI_BAD_STATUS)) // an error response has a body too
        *answer = text;
    return result;
}

} // namespace

std::shared_ptr<httpserver::http_response> fake::call_route(const std::string &method, const std::string &path,
                                                            const std::map<std::string, std::string> &args,
                                                            const std::string &body)
{
    const auto found = handlers().find({method, path});
    return found != handlers().end() && found->second != nullptr ? found->second(TScriptedRequest(args, body))
                                                                 : nullptr;
}

common_http_resource::common_http_resource(const char *path, ssci_handler get, ssci_handler put, ssci_handler post,
                                           ssci_handler del)
{
    handlers().insert({{{"GET", path}, get}, {{"PUT", path}, put}, {{"POST", path}, post}, {{"DELETE", path}, del}});
}

/* The service's health text is tested end to end. */
common_service_resource::common_service_resource(const char *, bool (*)(char *, size_t), size_t) {}

long long ssci_server_create(const char *name, const char *host, int port, int workers, const char *nameserver_host,
                             int nameserver_port, bool flag, int number, const char *text)
{
    EXPECT_EQ(text_format("%s %s:%d %d %s:%d %d %d [%s]", name, host, port, workers, nameserver_host, nameserver_port,
                          flag ? 1 : 0, number, text),
              "sysmonService localhost:10191 2 localhost:10182 0 0 []");
    return state()->create_result;
}

long long ssci_server_start()
{
    return state()->start_result;
}

long long ssci_server_stop()
{
    return state()->stop_result;
}

long long ssci_server_destory()
{
    return state()->destroy_result;
}

struct TNotifySessionManager::TSession {
    std::string service;
};

TNotifySessionManager::TNotifySessionManager(const char *service, const char * /*route*/)
    : m_session(new TSession{service})
{
}

TNotifySessionManager::~TNotifySessionManager() = default;

int TNotifySessionManager::run()
{
    return static_cast<int>(state()->session_result);
}

int TNotifySessionManager::stop(int mode)
{
    EXPECT_TRUE(m_terminate && mode == 0);
    return 0;
}

int TNotifySessionManager::wait()
{
    return 0;
}

long long TNotifySessionManager::sendNotification(int category, int code, const char *text, int level)
{
    state()->notices.push_back(
        text_format("%s %d %d [%s] %d", m_session->service.c_str(), category, code, text, level));
    return 0;
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

long long ssci_nameserver_init(const char * /*host*/, int /*port*/)
{
    return 0;
}

long long ssci_GET_request(const char *service, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s)
{
    return ask({"GET", service, 0, path, params, "", timeout_s}, answer);
}

int __ssci_errno()
{
    return 7;
}

const char *ssci_strerror(int /*code*/)
{
    return "connection refused";
}
