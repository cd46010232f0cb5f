#pragma once

#include <string>

#include "platform/httpserver.hpp"
#include "platform/stock/http/http_rules.h"

struct MHD_Connection;

/* Wraps libmicrohttpd's form of a request in our types. */

THttpHead mhd_head(MHD_Connection *mhd);

/* The request that a handler sees. To be used before the request is answered; while the connection is suspended, by any
 * thread. */
class TMhdRequest : public httpserver::http_request {
public:
    TMhdRequest(MHD_Connection *mhd, const std::string &body) : m_mhd(mhd), m_body(body) {}

    std::string get_arg(const std::string &key) const override;
    std::string get_content() const override { return m_body; }

private:
    MHD_Connection *m_mhd;
    const std::string &m_body;
};
