#pragma once

#include <string>
#include <string_view>

/* The types of the handlers as later versions of the library have them: arguments
 * and content are not texts by value any more. Only to be compiled against. */
namespace httpserver {

class http_arg_value {
public:
    operator std::string() const;
};

class http_request {
public:
    http_arg_value get_arg(std::string_view key) const;
    std::string_view get_content() const;
};

class http_response {
public:
    virtual ~http_response() = default;
};

class string_response : public http_response {
public:
    explicit string_response(std::string content, int response_code = 200,
                             const std::string &content_type = "text/plain");
};

} // namespace httpserver
