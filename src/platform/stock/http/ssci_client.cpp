#include <algorithm>
#include <curl/curl.h>
#include <new>

#include "base/mutex.h"
#include "platform/logging.h"
#include "platform/ssci.h"
#include "platform/stock/config/state_changes.h"
#include "platform/stock/http/http_client.h"
#include "platform/stock/hub/hub.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kLookupMs = 1000;

/* Services that run on every machine of this kind, used when the name server has no answer. */
constexpr struct {
    std::string_view name;
    int port;
} kWellKnown[] = {
    {"recStreamService", 10187},
    {"sysmonService", 10191},
};

thread_local int t_errno = 0; // of the calling thread's last call

TMutex g_lock;
THttpPeer g_name_server GUARDED_BY(g_lock); // no port until ssci_nameserver_init()

std::string target_of(const char *path, const ssci_params &params)
{
    std::string target = *path == '/' ? path : std::string("/") + path;
    char separator = target.find('?') == std::string::npos ? '?' : '&';
    for (const auto &[key, value] : params) {
        target.append(1, separator).append(http_encode(key)).append("=").append(http_encode(value));
        separator = '&';
    }
    return target;
}

uint64_t milliseconds(int seconds)
{
    return static_cast<uint64_t>(std::clamp(seconds, 0, 3600)) * 1000;
}

/* Makes one call and converts the result to the interface's codes. */
long long make_call(const THttpCall &call, std::string *answer)
{
    if (!http_call_is_valid(call))
        return SSCI_WRONG_ARGUMENTS;
    THttpAnswer got = http_call(call);
    t_errno = got.error;
    if (t_errno != 0)
        return t_errno == CURLE_ABORTED_BY_CALLBACK ? SSCI_CANCELLED : SSCI_TRANSPORT_ERROR;
    if (answer != nullptr)
        *answer = std::move(got.body);
    return got.is_success() ? SSCI_OK : SSCI_BAD_STATUS;
}

long long request(const char *method, const char *host, int port, const char *path, const ssci_params &params,
                  const std::string *body, std::string *answer, int timeout_s)
{
    t_errno = 0;
    if (host == nullptr || path == nullptr)
        return SSCI_WRONG_ARGUMENTS;
    try {
        return make_call({method, {host, port}, target_of(path, params), body, milliseconds(timeout_s)}, answer);
    } catch (const std::bad_alloc &) {
        t_errno = CURLE_OUT_OF_MEMORY;
        return SSCI_TRANSPORT_ERROR;
    }
}

THttpPeer name_server()
{
    const TLock guard(g_lock);
    return g_name_server;
}

/* Whether *peer is the service's address from the name server. A name that it does not know and a name server that does
 * not answer are treated alike. So is an address on another machine, which is logged: the service was moved on purpose,
 * but calls do not follow it. */
bool ask_name_server(const char *service, uint64_t timeout_ms, THttpPeer *peer)
{
    static TStateChanges refusals;
    std::string answer;
    const THttpCall lookup = {"GET", name_server(), "/nameserver/services/" + http_encode(service), nullptr,
                              timeout_ms};
    if (make_call(lookup, &answer) != SSCI_OK)
        return false;
    const bool refused = hub_address_parse(answer, peer) != 0;
    if (refusals.is_news(service, refused ? 1 : 0))
        log_Debug("name server: the answer for %s is not an address on this machine, ignored: %.200s", service,
                  answer.c_str());
    return !refused;
}

/* Returns 0, SSCI_UNKNOWN_SERVICE or SSCI_CANCELLED. */
long long find_service(const char *service, uint64_t timeout_ms, THttpPeer *peer)
{
    if (ask_name_server(service, timeout_ms, peer))
        return 0;
    if (t_errno == CURLE_ABORTED_BY_CALLBACK)
        return SSCI_CANCELLED;
    for (const auto &[name, port] : kWellKnown) {
        if (name == service) {
            *peer = {"localhost", port};
            return 0;
        }
    }
    return SSCI_UNKNOWN_SERVICE;
}

} // namespace

long long ssci_GET_request(const char *host, int port, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s)
{
    return request("GET", host, port, path, params, nullptr, answer, timeout_s);
}

long long ssci_DELETE_request(const char *host, int port, const char *path, const ssci_params &params,
                              std::string *answer, int timeout_s)
{
    return request("DELETE", host, port, path, params, nullptr, answer, timeout_s);
}

long long ssci_PUT_request(const char *host, int port, const char *path, const std::string &body, std::string *answer,
                           int timeout_s)
{
    return request("PUT", host, port, path, {}, &body, answer, timeout_s);
}

long long ssci_POST_request(const char *host, int port, const char *path, const std::string &body, std::string *answer,
                            int timeout_s)
{
    return request("POST", host, port, path, {}, &body, answer, timeout_s);
}

long long ssci_nameserver_init(const char *host, int port)
{
    if (host == nullptr || !http_call_is_valid({"GET", {host, port}, "/", nullptr, kLookupMs}))
        return SSCI_WRONG_ARGUMENTS;
    const TLock guard(g_lock);
    g_name_server = {host, port};
    return SSCI_OK;
}

long long ssci_GET_request(const char *service, const char *path, const ssci_params &params, std::string *answer,
                           int timeout_s)
{
    t_errno = 0;
    if (service == nullptr || *service == '\0' || path == nullptr || timeout_s <= 0)
        return SSCI_WRONG_ARGUMENTS;
    try {
        const uint64_t begin_ms = current_time_stamp_mono_r();
        const uint64_t allowed_ms = milliseconds(timeout_s);
        THttpPeer peer;
        const long long found = find_service(service, std::min(kLookupMs, allowed_ms / 2), &peer);
        if (found == SSCI_CANCELLED)
            return found;
        t_errno = 0; // a failed lookup is not the call's failure
        if (found != 0)
            return found;
        const uint64_t spent_ms = current_time_stamp_mono_r() - begin_ms;
        const uint64_t left_ms = allowed_ms > spent_ms ? allowed_ms - spent_ms : 1;
        return make_call({"GET", peer, target_of(path, params), nullptr, left_ms}, answer);
    } catch (const std::bad_alloc &) {
        t_errno = CURLE_OUT_OF_MEMORY;
        return SSCI_TRANSPORT_ERROR;
    }
}

int __ssci_errno()
{
    return t_errno;
}

const char *ssci_strerror(int code)
{
    return curl_easy_strerror(static_cast<CURLcode>(code));
}
