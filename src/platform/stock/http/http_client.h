#pragma once

#include <cstdint>
#include <string>

/* The address of a peer: "localhost" or an IPv4 address in numbers. Names are never resolved: a name server that hangs
 * would block the caller. */
struct THttpPeer {
    std::string host;
    int port = 0;
};

struct THttpCall {
    const char *method;
    THttpPeer peer;
    std::string target;      // path and query, encoded
    const std::string *body; // JSON text; null for no body
    uint64_t timeout_ms;     // in total
};

struct THttpAnswer {
    int error; // of libcurl; CURLE_ABORTED_BY_CALLBACK: cancelled. The rest is only valid without an error
    long status;
    std::string body;

    bool is_success() const { return error == 0 && status >= 200 && status < 300; }
};

/* Whether this peer and target are valid for a call. */
bool http_call_is_valid(const THttpCall &call);

/* Whether that is a service on this machine: the loopback, by name or number, and a port. */
bool http_is_local(const char *host, int64_t port);

/* Makes one request and waits for its answer: no proxy, no redirects, at most one second for connecting and 1 MiB of
 * answer. Cancelled soon after the calling thread is asked to stop (platform/interrupt.h). Any thread may call. */
THttpAnswer http_call(const THttpCall &call);

/* Encodes `text` for use in a path or a query. Throws std::bad_alloc. */
std::string http_encode(const std::string &text);
