#pragma once

#include <cstdint>
#include <string>

#include "base/json.h"
#include "platform/stock/http/http_client.h"
#include "platform/stock/process/background_thread.h"

/* The local hub: name server, notices and message bus of the services of this
 * machine, as JSON over HTTP. */

THttpPeer hub_peer();

/* A value as it is sent to the hub. Throws std::bad_alloc. */
std::string hub_text(const TJson &value);

/* How long to wait after a PUT, when that many have failed since the last that got
 * through: some 30 s while the hub is there; while it is not 10 s, then twice as
 * long each time, to a minute. */
uint64_t hub_wait_ms(unsigned failures);

/* Keeps something of ours present at the hub: PUT at once, again as hub_wait_ms
 * says, and DELETE at the end if a PUT ever succeeded. A hub that is absent or hangs is
 * tried again and delays no caller. */
class THubPresence {
public:
    THubPresence(THttpPeer hub, std::string target, std::string body,
                 uint64_t (*pause_ms)(unsigned failures) = hub_wait_ms);

    /* Returns 0, or an error number. `thread_name` is kept as a pointer. */
    int start(const char *thread_name);

    /* Both return soon, even with a hub that hangs; harmless without start. */
    void request_stop() { m_thread.request_stop(); }
    void join() { m_thread.join(); }

private:
    void keep();

    const THttpPeer m_hub;
    const std::string m_target;
    const std::string m_body;
    uint64_t (*const m_pause_ms)(unsigned failures);
    TBackgroundThread m_thread; // last: it uses the members above
};

/* {"host","port"}, {"route"} and {"session","category","code","text","level"}. */
std::string hub_address_text(const std::string &host, int port);
std::string hub_route_text(const std::string &route);
std::string hub_notice_text(const std::string &session, int category, int code, const std::string &text, int level);

/* Parses a service's address from the name server's answer. Returns 0; -1 when the text is not an address on this
 * machine, and then *peer is unchanged. */
int hub_address_parse(const std::string &text, THttpPeer *peer);
