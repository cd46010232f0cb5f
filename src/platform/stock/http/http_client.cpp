#include "platform/stock/http/http_client.h"

#include <algorithm>
#include <arpa/inet.h>
#include <curl/curl.h>
#include <memory>
#include <new>
#include <string_view>
#include <strings.h>
#include <sys/socket.h>

#include "platform/interrupt.h"
#include "platform/stock/process/call_wait.h"

namespace {

constexpr uint64_t kConnectMs = 1000;
constexpr uint64_t kLongestPollMs = 1000; // the library shortens it to its own timers
constexpr size_t kMaxAnswer = size_t{1024} * 1024;
constexpr size_t kMaxHeaders = size_t{64} * 1024;
constexpr size_t kEnough = 0; // returned by a callback to end the transfer

/* Before main: what the library allocates for the first calling thread is only freed if that thread lives as long as
 * the process. Plain HTTP needs no TLS. Out of memory ends the start. */
struct TLibrary {
    TLibrary()
    {
        if (curl_global_init(CURL_GLOBAL_NOTHING) != CURLE_OK)
            throw std::bad_alloc();
    }
};
const TLibrary g_library;

/* The received part of an answer. */
struct TIntake {
    std::string body;
    size_t header_bytes = 0;
    bool too_large = false;
};

size_t on_body(char *data, size_t size, size_t count, void *user)
{
    auto *intake = static_cast<TIntake *>(user);
    if (size * count > kMaxAnswer - intake->body.size()) {
        intake->too_large = true;
        return kEnough;
    }
    try {
        intake->body.append(data, size * count);
    } catch (const std::bad_alloc &) {
        return kEnough;
    }
    return size * count;
}

size_t on_header(char * /*data*/, size_t size, size_t count, void *user)
{
    auto *intake = static_cast<TIntake *>(user);
    intake->header_bytes += size * count;
    return intake->header_bytes <= kMaxHeaders ? size * count : kEnough;
}

/* The library's own descriptors for waking a poll are out of our reach: they are not closed on exec, so child processes
 * close all descriptors one by one. */
curl_socket_t open_socket(void * /*user*/, curlsocktype /*purpose*/, curl_sockaddr *address)
{
    return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

std::string numeric_host(const std::string &host)
{
    return strcasecmp(host.c_str(), "localhost") == 0 ? "127.0.0.1" : host;
}

void set_up(CURL *easy, const THttpCall &call, const curl_slist *headers, TIntake *intake)
{
    const std::string url =
        "http://" + numeric_host(call.peer.host) + ":" + std::to_string(call.peer.port) + call.target;
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, call.method);
    if (call.body != nullptr) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, call.body->c_str());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(call.body->size()));
    }
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, static_cast<long>(call.timeout_ms));
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(std::min(kConnectMs, call.timeout_ms)));
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(easy, CURLOPT_PROXY, ""); // ignore the environment's
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, open_socket);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, on_body);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, intake);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, on_header);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, intake);
}

/* Runs the transfer to its end, or until the caller is asked to stop: CURLE_ABORTED_BY_CALLBACK, which none of our
 * callbacks causes. */
CURLcode perform(CURLM *multi)
{
    TCallWait wait;
    for (int running = 1;;) {
        if (platform_interrupted())
            return CURLE_ABORTED_BY_CALLBACK;
        if (curl_multi_perform(multi, &running) != CURLM_OK)
            return CURLE_FAILED_INIT;
        if (running == 0)
            break;
        curl_waitfd wake_up = {wait.fd(), CURL_WAIT_POLLIN, 0};
        (void)curl_multi_poll(multi, &wake_up, wake_up.fd >= 0 ? 1 : 0, wait.wait_ms(kLongestPollMs), nullptr);
        wait.taken();
    }
    int left = 0;
    const CURLMsg *message = curl_multi_info_read(multi, &left);
    return message != nullptr && message->msg == CURLMSG_DONE ? message->data.result : CURLE_FAILED_INIT;
}

} // namespace

bool http_call_is_valid(const THttpCall &call)
{
    struct in_addr address = {};
    return inet_pton(AF_INET, numeric_host(call.peer.host).c_str(), &address) == 1 && call.peer.port > 0 &&
           call.peer.port <= 65535 && call.timeout_ms > 0 && call.target.starts_with('/') &&
           std::all_of(call.target.begin(), call.target.end(),
                       [](char c) { return c > ' ' && c < '\x7f' && c != '#'; });
}

bool http_is_local(const char *host, int64_t port)
{
    const std::string_view name = host != nullptr ? host : "";
    return (name == "localhost" || name == "127.0.0.1") && port > 0 && port <= 65535;
}

THttpAnswer http_call(const THttpCall &call)
{
    const std::unique_ptr<CURLM, decltype(&curl_multi_cleanup)> multi(curl_multi_init(), curl_multi_cleanup);
    const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> headers(
        curl_slist_append(nullptr, "Content-Type: application/json"), curl_slist_free_all);
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> easy(curl_easy_init(), curl_easy_cleanup);
    if (multi == nullptr || easy == nullptr || headers == nullptr)
        return {CURLE_OUT_OF_MEMORY, 0, ""};
    TIntake intake;
    set_up(easy.get(), call, call.body != nullptr ? headers.get() : nullptr, &intake);
    if (curl_multi_add_handle(multi.get(), easy.get()) != CURLM_OK)
        return {CURLE_FAILED_INIT, 0, ""};
    const CURLcode result = perform(multi.get());
    curl_multi_remove_handle(multi.get(), easy.get());
    if (intake.too_large)
        return {CURLE_FILESIZE_EXCEEDED, 0, ""};
    long status = 0;
    curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
    return {result, status, std::move(intake.body)};
}

std::string http_encode(const std::string &text)
{
    const std::unique_ptr<char, decltype(&curl_free)> encoded(
        curl_easy_escape(nullptr, text.data(), static_cast<int>(text.size())), curl_free);
    return encoded != nullptr ? encoded.get() : throw std::bad_alloc();
}
