#include "platform/stock/http_rules.h"

#include <algorithm>
#include <strings.h>

T_HTTP_METHOD http_method(std::string_view name)
{
    int method = HTTP_GET;
    while (method < HTTP_METHODS && name != kHttpMethods[method])
        ++method;
    return static_cast<T_HTTP_METHOD>(method);
}

bool http_host_is_local(std::string_view value)
{
    constexpr std::string_view kNames[] = {"localhost", "127.0.0.1", "[::1]"};
    return std::any_of(std::begin(kNames), std::end(kNames), [value](std::string_view name) {
        if (value.size() < name.size() || strncasecmp(value.data(), name.data(), name.size()) != 0)
            return false;
        const std::string_view rest = value.substr(name.size());
        return rest.empty() ||
               (rest[0] == ':' && rest.find_first_not_of("0123456789", 1) == std::string_view::npos && rest.size() > 1);
    });
}
