#pragma once

#include <cstdint>
#include <string>
#include <string_view>

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

/* Whether this peer and target are valid for a call. */
bool http_call_is_valid(const THttpCall &call);

constexpr int kHttpGivenUp = 42; // a number that the library below leaves to its callers

/* Initializes the library below, once per process; http_call does so too. What the library allocates for the first
 * calling thread is only freed if that thread lives as long as the process, so a thread that starts others calls this
 * first. */
void http_prepare();

/* Makes one request and waits for its answer: no proxy, no redirects, at most one second for connecting and 1 MiB of
 * answer. Cancelled with kHttpGivenUp soon after the calling thread is asked to stop (platform/interrupt.h). Returns 0
 * with *status and *body filled in, otherwise an error number for `http_strerror`. Any thread may call. */
int http_call(const THttpCall &call, long *status, std::string *body);

/* Never null. */
const char *http_strerror(int error);

/* Encodes `text` for use in a path or a query. */
std::string http_encode(std::string_view text);
