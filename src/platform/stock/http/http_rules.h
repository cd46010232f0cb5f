#pragma once

#include <array>
#include <cstdint>
#include <string_view>

/* Checks of a request before a handler sees it. */

inline constexpr std::array<std::string_view, 4> kHttpMethods = {"GET", "PUT", "POST", "DELETE"};

/* Whether the value of a Host header is this machine's loopback: "localhost", "127.0.0.1" or "[::1]" in any case, with
 * or without a port. This detects web pages whose host name was made to resolve to 127.0.0.1. */
bool http_host_is_local(std::string_view value);

/* The evaluated headers of a request. All headers of a name count: when one is repeated, it is not known which one an
 * intermediary used. */
struct THttpHead {
    /* Adds one header; its name is matched in any case. */
    void add(std::string_view name, std::string_view value);

    /* Whether the end of the body is unambiguous: at most one length or encoding. With two, what one program takes for
     * the body is the next request to another. */
    bool is_clear() const { return lengths + encodings <= 1; }

    bool host_is_local = true;
    /* False when a browser on this machine sent the request for a page of another site: with "Sec-Fetch-Site:
     * cross-site", or an Origin other than the loopback's. */
    bool page_is_local = true;
    unsigned lengths = 0, encodings = 0; // number of Content-Length, Transfer-Encoding headers
    uint64_t length = 0;                 // the largest Content-Length
};
