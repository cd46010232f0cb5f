#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "query_api/outcome.h"

/* Where the monitor answers. */
struct TAddress {
    std::string host = "127.0.0.1"; // name, IPv4 or IPv6 address
    uint16_t port = 10191;
};

using TArguments = std::vector<std::pair<std::string, std::string>>;

/* HTTP client for one server over one kept-alive connection. One thread at a time. No
 * redirects, no proxies, no other protocol; an answer above kMaxAnswer bytes is
 * invalid. */
class THttpClient {
public:
    static constexpr size_t kMaxAnswer = 4U << 20;

    explicit THttpClient(TAddress address);
    ~THttpClient();
    THttpClient(const THttpClient &) = delete;
    THttpClient &operator=(const THttpClient &) = delete;

    /* Time limit for all requests from now on, together. */
    void begin(std::chrono::milliseconds budget);

    /* GET, or PUT with the body where there is one. `path` begins with a slash; the
     * arguments are percent-encoded here. *answer gets the body of an answer with
     * status 200. kUnreachable, kTimeout, or kInvalid for anything else. */
    TOutcome request(const std::string &path, const TArguments &arguments, const std::string *body,
                     std::string *answer);

    const TAddress &address() const { return m_address; }

private:
    struct THandle;
    TAddress m_address;
    std::unique_ptr<THandle> m_handle;
    std::chrono::steady_clock::time_point m_deadline;
};
