#pragma once

#include <cstdint>
#include <string_view>

/* What the server checks in a request before a handler sees it. */

enum T_HTTP_METHOD { HTTP_GET, HTTP_PUT, HTTP_POST, HTTP_DELETE, HTTP_METHODS };

inline constexpr const char *kHttpMethods[HTTP_METHODS] = {"GET", "PUT", "POST", "DELETE"};

/* HTTP_METHODS for any other method, HEAD among them. */
T_HTTP_METHOD http_method(std::string_view name);

/* Whether the value of a Host header means this machine's loopback: "localhost",
 * "127.0.0.1" or "[::1]" in any case, with or without a port. A page from
 * elsewhere, whose name was made to resolve to 127.0.0.1, is told apart by it. */
bool http_host_is_local(std::string_view value);

/* What the headers of a request come to. All of a name count: where there are two
 * it is not known which one a program in between went by. */
struct T_HTTP_HEAD {
    /* Takes one header, its name in any case. */
    void add(std::string_view name, std::string_view value);

    /* Whether it is clear where the body ends: one length or one encoding. With two
     * of them, what one program takes for the body is the next request to another. */
    bool is_clear() const { return lengths + encodings <= 1; }

    bool host_is_local = true;
    /* Not the page of another site that a browser on this machine shows: it would
     * have "Sec-Fetch-Site: cross-site", or an Origin that is not the loopback's. */
    bool page_is_local = true;
    unsigned lengths = 0, encodings = 0; // how many Content-Length, Transfer-Encoding
    uint64_t length = 0;                 // the largest Content-Length
};
