#pragma once

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
