#include "platform/stock/hub/hub.h"

#include <algorithm>
#include <json-c/json.h>
#include <memory>
#include <new>
#include <utility>

#include "base/json.h"
#include "platform/interrupt.h"
#include "platform/logging.h"

namespace {

constexpr uint64_t kPeriodMs = 30'000;
constexpr uint64_t kRetryMs = 10'000; // the first time that the hub is not there
constexpr uint64_t kLongestRetryMs = 60'000;
constexpr uint64_t kPutMs = 5000;
constexpr uint64_t kDeleteMs = 300; // the daemon's stop waits for it

std::string text_of(const TJson &object)
{
    const char *text = json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_PLAIN);
    return text != nullptr ? text : throw std::bad_alloc();
}

bool succeeded(int error, long status)
{
    return error == 0 && status >= 200 && status < 300;
}

} // namespace

THttpPeer hub_peer()
{
    return {"127.0.0.1", 10182};
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

THubPresence::THubPresence(THttpPeer hub, std::string target, std::string body)
    : m_hub(std::move(hub)), m_target(std::move(target)), m_body(std::move(body))
{
}

int THubPresence::start(const char *thread_name)
{
    return m_thread.start(thread_name, [this] { keep(); });
}

bool THubPresence::put() const
{
    long status = 0;
    std::string answer;
    const int error = http_call({"PUT", m_hub, m_target, &m_body, kPutMs}, &status, &answer);
    return succeeded(error, status);
}

void THubPresence::keep()
{
    bool present = false;  // what the hub last said
    bool known = false;    // a PUT got through at some time
    unsigned failures = 0; // since it did
    do {
        const bool was_present = std::exchange(present, put());
        if (was_present && !present)
            log_Debug("hub: lost %s", m_target.c_str());
        failures = present ? 0 : failures + 1;
        known = known || present;
    } while (m_thread.wait_ms(hub_wait_ms(failures)));

    if (!known)
        return;
    platform_interrupt_on(nullptr); // the stop must not cancel this call
    long status = 0;
    std::string answer;
    (void)http_call({"DELETE", m_hub, m_target, nullptr, kDeleteMs}, &status, &answer);
}

std::string hub_address_text(const std::string &host, int port)
{
    const TJson object(json_object_new_object());
    json_give_text(object.get(), "host", host);
    json_give(object.get(), "port", TJson(json_object_new_int(port)));
    return text_of(object);
}

std::string hub_route_text(const std::string &route)
{
    const TJson object(json_object_new_object());
    json_give_text(object.get(), "route", route);
    return text_of(object);
}

std::string hub_notice_text(const std::string &session, int category, int code, const std::string &text, int level)
{
    const TJson object(json_object_new_object());
    json_give_text(object.get(), "session", session);
    json_give(object.get(), "category", TJson(json_object_new_int(category)));
    json_give(object.get(), "code", TJson(json_object_new_int(code)));
    json_give_text(object.get(), "text", text);
    json_give(object.get(), "level", TJson(json_object_new_int(level)));
    return text_of(object);
}

int hub_address_parse(const std::string &text, THttpPeer *peer)
{
    const TJson object = json_parse_whole(text);
    json_object *host = nullptr;
    json_object *port = nullptr;
    if (!json_object_is_type(object.get(), json_type_object) ||
        !json_object_object_get_ex(object.get(), "host", &host) || !json_object_is_type(host, json_type_string) ||
        !json_object_object_get_ex(object.get(), "port", &port) || !json_object_is_type(port, json_type_int))
        return -1;
    const std::string name = json_object_get_string(host);
    const int64_t number = json_object_get_int64(port);
    if ((name != "localhost" && name != "127.0.0.1") || number < 1 || number > 65535)
        return -1;
    *peer = {name, static_cast<int>(number)};
    return 0;
}
