#include "platform/stock/hub/hub.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/interrupt.h"
#include "platform/logging.h"

namespace {

constexpr uint64_t kPeriodMs = 30'000;
constexpr uint64_t kRetryMs = 10'000; // the first time that the hub is not there
constexpr uint64_t kLongestRetryMs = 60'000;
constexpr uint64_t kPutMs = 5000;
constexpr uint64_t kDeleteMs = 300; // the daemon's stop waits for it

} // namespace

THttpPeer hub_peer()
{
    return {"127.0.0.1", 10182};
}

std::string hub_text(const TJson &value)
{
    const char *text = json_object_to_json_string_ext(value.get(), JSON_C_TO_STRING_PLAIN);
    return text != nullptr ? text : throw std::bad_alloc();
}

uint64_t hub_wait_ms(unsigned failures)
{
    if (failures == 0)
        return kPeriodMs;
    uint64_t wait_ms = kRetryMs;
    for (unsigned i = 1; i < failures && wait_ms < kLongestRetryMs; ++i)
        wait_ms *= 2;
    return std::min(wait_ms, kLongestRetryMs);
}

THubPresence::THubPresence(THttpPeer hub, std::string target, std::string body, uint64_t (*pause_ms)(unsigned))
    : m_hub(std::move(hub)), m_target(std::move(target)), m_body(std::move(body)), m_pause_ms(pause_ms)
{
}

int THubPresence::start(const char *thread_name)
{
    return m_thread.start(thread_name, [this] { keep(); });
}

void THubPresence::keep()
{
    bool present = false;  // what the hub last said
    bool known = false;    // a PUT got through at some time
    unsigned failures = 0; // since it did
    do {
        const THttpAnswer answer = http_call({"PUT", m_hub, m_target, &m_body, kPutMs});
        if (std::exchange(present, answer.is_success()) && !present)
            log_Debug("hub: lost %s", m_target.c_str());
        failures = present ? 0 : failures + 1;
        known = known || present;
    } while (m_thread.wait_ms(m_pause_ms(failures)));

    if (!known)
        return;
    platform_interrupt_on(nullptr); // the stop must not cancel this call
    (void)http_call({"DELETE", m_hub, m_target, nullptr, kDeleteMs});
}

std::string hub_address_text(const std::string &host, int port)
{
    const TJson object(json_object_new_object());
    json_give_text(object.get(), "host", host);
    json_give(object.get(), "port", TJson(json_object_new_int(port)));
    return hub_text(object);
}

std::string hub_route_text(const std::string &route)
{
    const TJson object(json_object_new_object());
    json_give_text(object.get(), "route", route);
    return hub_text(object);
}

std::string hub_notice_text(const std::string &session, int category, int code, const std::string &text, int level)
{
    const TJson object(json_object_new_object());
    json_give_text(object.get(), "session", session);
    json_give(object.get(), "category", TJson(json_object_new_int(category)));
    json_give(object.get(), "code", TJson(json_object_new_int(code)));
    json_give_text(object.get(), "text", text);
    json_give(object.get(), "level", TJson(json_object_new_int(level)));
    return hub_text(object);
}

int hub_address_parse(const std::string &text, THttpPeer *peer)
{
    const TJson object = json_parse_whole(text);
    json_object *host = json_member(object.get(), "host");
    json_object *port = json_member(object.get(), "port");
    if (!json_object_is_type(host, json_type_string) || !json_object_is_type(port, json_type_int) ||
        !http_is_local(json_object_get_string(host), json_object_get_int64(port)))
        return -1;
    *peer = {json_object_get_string(host), json_object_get_int(port)};
    return 0;
}
