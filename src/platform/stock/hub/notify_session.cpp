#include "platform/ssci.h"

#include <exception>

#include "platform/logging.h"
#include "platform/stock/hub/hub.h"
#include "platform/stock/hub/notice_sender.h"

namespace {

/* Shared by all sessions, which may end before their notices are sent: created with the first notice, destroyed at
 * exit, after all senders. */
TNoticeSender &sender()
{
    static TNoticeSender instance(hub_peer(), TNoticeLimits());
    return instance;
}

} // namespace

struct TNotifySessionManager::TSession {
    TSession(const char *service, const char *route)
        : name(service), has_route(*route != '\0'),
          subscription(hub_peer(), "/notify/subscriptions/" + http_encode(name), hub_route_text(route))
    {
    }

    const std::string name;
    const bool has_route;
    THubPresence subscription;
};

TNotifySessionManager::TNotifySessionManager(const char *service, const char *route)
    : m_session(std::make_unique<TSession>(service != nullptr ? service : "", route != nullptr ? route : ""))
{
}

TNotifySessionManager::~TNotifySessionManager() = default; // the subscription ends by itself

int TNotifySessionManager::run()
{
    return m_session->has_route ? m_session->subscription.start("SSCI-notify") : 0;
}

int TNotifySessionManager::stop(int /*mode*/)
{
    m_session->subscription.request_stop();
    return 0;
}

int TNotifySessionManager::wait()
{
    m_session->subscription.join();
    return 0;
}

long long TNotifySessionManager::sendNotification(int category, int code, const char *text, int level)
{
    try {
        return sender().send(hub_notice_text(m_session->name, category, code, text != nullptr ? text : "", level)) == 0
                   ? SSCI_OK
                   : SSCI_TRANSPORT_ERROR;
    } catch (const std::exception &failure) {
        log_Debug("notice %d dropped: %s", code, failure.what());
        return SSCI_TRANSPORT_ERROR;
    }
}
