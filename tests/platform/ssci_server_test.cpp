#include <cstring>
#include <gtest/gtest.h>
#include <mutex>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/http_server.h"
#include "platform/stock/hub.h"

namespace {

using httpserver::http_request;
using T_RESPONSE = std::shared_ptr<httpserver::http_response>;

T_RESPONSE handler(const http_request &)
{
    return std::make_shared<ssci_response>("got");
}

bool health(char *buffer, size_t size)
{
    strncpy(buffer, "health", size); // fills all of a short buffer
    return true;
}

/* A hub that writes down what it is told. */
class THub {
public:
    THub() : m_server({{"/nameserver/services/svc", {nullptr, log("PUT "), nullptr, log("DELETE ")}}}, {})
    {
        EXPECT_EQ(m_server.start(0, 1), 0);
    }
    int port() const { return m_server.port(); }
    std::string heard(const std::string &expected) // waits for it
    {
        for (int i = 0; i < 300; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            const std::lock_guard<std::mutex> guard(m_lock);
            if (m_heard == expected)
                break;
        }
        return m_heard;
    }

private:
    T_HTTP_HANDLER log(const char *method)
    {
        return [this, method](const http_request &request) {
            const std::lock_guard<std::mutex> guard(m_lock);
            m_heard += method + request.get_content() + "\n";
            return std::make_shared<ssci_response>("{}");
        };
    }
    std::mutex m_lock;
    std::string m_heard;
    THttpServer m_server;
};

long long create(int port, int hub_port, int workers = 2)
{
    return ssci_server_create("svc", "localhost", port, workers, "localhost", hub_port, false, 0, "");
}

class SsciServer : public testing::Test {
protected:
    ~SsciServer() override
    {
        EXPECT_EQ(ssci_server_stop(), 0);
        EXPECT_EQ(ssci_server_destory(), 0);
    }
    std::string ask(const char *path) const
    {
        std::string answer = "none";
        (void)ssci_GET_request("localhost", m_port, path, {}, &answer, 5);
        return answer;
    }
    const int m_port = free_port();
    common_http_resource m_route{"/svc/route", handler};
    common_service_resource m_service{"svc", health, 4};
};

TEST_F(SsciServer, ServesItsRoutesAndKeepsItsNameWithTheHub)
{
    THub hub;
    const std::string put = "PUT {\"host\":\"localhost\",\"port\":" + std::to_string(m_port) + "}\n";
    ASSERT_EQ(create(m_port, hub.port()), 0);
    EXPECT_EQ(ask("/svc/route"), "none");
    ASSERT_EQ(ssci_server_start(), 0);
    EXPECT_EQ(hub.heard(put), put);
    EXPECT_EQ(ask("/svc/route"), "got");
    EXPECT_EQ(ask("/svc/health"), "heal");
    EXPECT_NE(ssci_server_start(), 0);
    EXPECT_NE(create(m_port, hub.port()), 0);
    EXPECT_EQ(ssci_server_stop(), 0);
    EXPECT_EQ(hub.heard(put + "DELETE \n"), put + "DELETE \n");
    EXPECT_EQ(ask("/svc/route"), "none");
    EXPECT_EQ(ssci_server_start(), 0); // and again
    EXPECT_EQ(ask("/svc/route"), "got");
}

TEST_F(SsciServer, StopsAtOnceWhateverTheHubDoes)
{
    const TListener hanging; // takes the connection and says nothing
    for (const int hub_port : {hanging.port(), free_port()}) {
        ASSERT_EQ(create(m_port, hub_port), 0);
        ASSERT_EQ(ssci_server_start(), 0);
        EXPECT_EQ(ask("/svc/route"), "got");
        EXPECT_LT(duration_ms([] { EXPECT_EQ(ssci_server_stop(), 0); }), 1000U);
        EXPECT_EQ(ssci_server_destory(), 0);
    }
}

TEST_F(SsciServer, IsHarmlessAfterAFailedStart)
{
    EXPECT_NE(create(m_port, 0), 0);
    EXPECT_NE(create(0, 1), 0);
    EXPECT_NE(create(m_port, 1, 0), 0);
    EXPECT_NE(ssci_server_start(), 0);
    EXPECT_EQ(ssci_server_stop(), 0);
    EXPECT_EQ(ssci_server_destory(), 0);

    const TListener taken;
    ASSERT_EQ(create(taken.port(), 1), 0);
    EXPECT_NE(ssci_server_start(), 0);
    EXPECT_EQ(ssci_server_stop(), 0);
    EXPECT_EQ(ssci_server_destory(), 0);
}

TEST(HubPresence, GivesTheNameUpSoonWithAHubThatStopsAnswering)
{
    const TScriptedPeer hub("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "", 0, true); // once
    THubPresence presence({"localhost", hub.port()}, "/x", "{}");
    ASSERT_EQ(presence.start("test"), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_LT(duration_ms([&] {
                  presence.request_stop();
                  presence.join();
              }),
              1000U);
}

TEST(NotifySession, EndsAtOnceAlsoWhenItNeverRan)
{
    TNotifySessionManager idle("test_session");
    EXPECT_EQ(idle.run(), 0);
    TNotifySessionManager never("test_session", "/x");
    for (TNotifySessionManager *session : {&idle, &never}) {
        session->m_terminate = true;
        EXPECT_EQ(session->stop(0), 0);
        EXPECT_EQ(session->wait(), 0);
    }
}

} // namespace
