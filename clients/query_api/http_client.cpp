#include "query_api/http_client.h"

#include <algorithm>
#include <cctype>

#include <curl/curl.h>

#include "query_api/clean_text.h"

namespace {

constexpr size_t kMaxHeaders = 64U << 10;

struct TCurlDelete {
    void operator()(CURL *curl) const { curl_easy_cleanup(curl); }
    void operator()(CURLU *url) const { curl_url_cleanup(url); }
    void operator()(curl_slist *list) const { curl_slist_free_all(list); }
    void operator()(char *text) const { curl_free(text); }
};
template <typename THandle> using TCurlOwner = std::unique_ptr<THandle, TCurlDelete>;

/* Limits the size of one answer; a callback that accepts less than it is given ends
 * the transfer. */
struct TIntake {
    std::string *body = nullptr;
    size_t headers = 0;
    bool too_large = false;
};

size_t take_body(const char *data, size_t one, size_t size, void *user)
{
    auto *intake = static_cast<TIntake *>(user);
    if (intake->body->size() + one * size > THttpClient::kMaxAnswer) {
        intake->too_large = true;
        return 0;
    }
    intake->body->append(data, one * size);
    return one * size;
}

size_t take_header(const char * /*data*/, size_t one, size_t size, void *user)
{
    auto *intake = static_cast<TIntake *>(user);
    intake->headers += one * size;
    intake->too_large = intake->too_large || intake->headers > kMaxHeaders;
    return intake->too_large ? 0 : one * size;
}

/* Letters, digits and the other characters of host names and addresses. */
bool host_is_valid(const std::string &host)
{
    return !host.empty() && host.size() <= 253 && host.front() != '-' &&
           std::all_of(host.begin(), host.end(), [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' || c == '_' || c == ':';
           });
}

} // namespace

struct THttpClient::THandle {
    TCurlOwner<CURL> curl{curl_easy_init()};
};

THttpClient::THttpClient(TAddress address) : m_address(std::move(address)), m_handle(std::make_unique<THandle>())
{
    begin(std::chrono::seconds(5));
}

THttpClient::~THttpClient() = default;

void THttpClient::begin(std::chrono::milliseconds budget)
{
    m_deadline = std::chrono::steady_clock::now() + budget;
}

TOutcome THttpClient::request(const std::string &path, const TArguments &arguments, const std::string *body,
                              std::string *answer)
{
    const std::string place = clean_text(m_address.host) + " port " + std::to_string(m_address.port);
    if (!host_is_valid(m_address.host))
        return failure(TFault::kUsage, "invalid host: " + clean_text(m_address.host));
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(m_deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0)
        return failure(TFault::kTimeout, "the time limit was reached before " + path + " was requested from " + place);
    CURL *const curl = m_handle->curl.get();
    const TCurlOwner<CURLU> url(curl_url());
    if (curl == nullptr || url == nullptr)
        return failure(TFault::kInternal, "out of memory");

    std::string host = m_address.host;
    if (host.find(':') != std::string::npos) // IPv6
        host.insert(0, "[").append("]");
    bool built = curl_url_set(url.get(), CURLUPART_SCHEME, "http", 0) == CURLUE_OK &&
                 curl_url_set(url.get(), CURLUPART_HOST, host.c_str(), 0) == CURLUE_OK &&
                 curl_url_set(url.get(), CURLUPART_PORT, std::to_string(m_address.port).c_str(), 0) == CURLUE_OK &&
                 curl_url_set(url.get(), CURLUPART_PATH, path.c_str(), 0) == CURLUE_OK;
    for (const auto &[name, value] : arguments) {
        std::string one = name;
        one.append("=").append(value);
        built = built &&
                curl_url_set(url.get(), CURLUPART_QUERY, one.c_str(), CURLU_APPENDQUERY | CURLU_URLENCODE) == CURLUE_OK;
    }
    if (!built)
        return failure(TFault::kUsage, "invalid address: " + place);

    const TCurlOwner<curl_slist> headers(curl_slist_append(nullptr, "Content-Type: application/json"));
    std::string text;
    TIntake intake{&text};
    curl_easy_reset(curl); // keeps the connection
    curl_easy_setopt(curl, CURLOPT_CURLU, url.get());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http");
    curl_easy_setopt(curl, CURLOPT_PROXY, "");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(left.count()));
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, take_body);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &intake);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, take_header);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &intake);
    if (body != nullptr) {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, "PUT");
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body->size()));
        curl_easy_setopt(curl, CURLOPT_COPYPOSTFIELDS, body->c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    }
    const CURLcode code = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    if (intake.too_large)
        return failure(TFault::kInvalid, place + ": the answer to " + path + " is too large");
    switch (code) {
    case CURLE_OK:
        break;
    case CURLE_COULDNT_CONNECT:
    case CURLE_COULDNT_RESOLVE_HOST:
        return failure(TFault::kUnreachable,
                       "cannot connect to " + place + ": " + clean_text(curl_easy_strerror(code)));
    case CURLE_OPERATION_TIMEDOUT:
        return failure(TFault::kTimeout, place + " did not answer " + path + " in time");
    default:
        return failure(TFault::kInvalid,
                       place + ": invalid answer to " + path + ": " + clean_text(curl_easy_strerror(code)));
    }
    if (status != 200)
        return failure(TFault::kInvalid,
                       place + ": " + path + " was answered with HTTP status " + std::to_string(status));
    *answer = std::move(text);
    return {};
}
