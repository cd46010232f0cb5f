#pragma once

#include <memory>
#include <string>
#include <utility>

/* The request and response types that route handlers see: the part of
 * libhttpserver's classic interface that the daemon uses. */
namespace httpserver {

class http_request {
public:
    virtual ~http_request() = default;

    /* The first argument of that name in the query string, decoded; empty when missing. It ends at the first NUL. */
    virtual std::string get_arg(const std::string &key) const = 0;

    /* The whole body. */
    virtual std::string get_content() const = 0;
};

class http_response {
public:
    explicit http_response(std::string content, int response_code = 200, std::string content_type = "text/plain")
        : m_content(std::move(content)), m_response_code(response_code), m_content_type(std::move(content_type))
    {
    }

    int get_response_code() const { return m_response_code; }
    const std::string &get_content_type() const { return m_content_type; }
    const std::string &get_body() const { return m_content; }

private:
    std::string m_content;
    int m_response_code;
    std::string m_content_type;
};

class string_response : public http_response {
public:
    using http_response::http_response;
};

} // namespace httpserver
