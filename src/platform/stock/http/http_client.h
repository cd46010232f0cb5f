#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/* Whom to ask: "localhost" or an IPv4 address in figures. Names are never
 * resolved: a name server that hangs would hold the caller up. */
struct T_HTTP_PEER {
    std::string host;
    int port;
};

struct T_HTTP_CALL {
    const char *method;
    T_HTTP_PEER peer;
    std::string target;      // path and query, encoded
    const std::string *body; // JSON text; null: none
    uint64_t timeout_ms;     // for all of it
};

/* Whether a call can be made to this peer and target at all. */
bool http_call_is_valid(const T_HTTP_CALL &call);

constexpr int kHttpGivenUp = 42; // a number that the library below leaves to its callers

/* Initializes the library below, once per process; http_call does so too. What the
 * library allocates for the thread that comes first is only freed where that thread
 * lives as long as the process, so a thread that makes others calls this before. */
void http_prepare();

/* Makes one request and waits for its answer: no proxy, no redirects, at most one
 * second for connecting and 1 MiB of answer. Gives up soon after the calling
 * thread was asked to (platform/interrupt.h), with kHttpGivenUp. 0 with *status and
 * *body filled in, else an error number for `http_strerror`. Any thread may call. */
int http_call(const T_HTTP_CALL &call, long *status, std::string *body);

/* Never null. */
const char *http_strerror(int error);

/* `text` as a part of a path or a query. */
std::string http_encode(std::string_view text);
