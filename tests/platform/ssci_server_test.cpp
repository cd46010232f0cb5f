#include <cstring>
#include <gtest/gtest.h>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/hub.h"

namespace {

std::shared_ptr<httpserver::http_response> handler(const httpserver::http_request &)
{
    return std::make_shared<ssci_response>("got");
}

bool health(char *buffer, size_t size)
{
    strncpy(buffer, "health", size); // fills all of a short buffer
    return true;
}

long long create(int port, int hub_port, int workers = 2)
{
    return ssci_server_create("svc", "localhost", port, workers, "localhost", hub_port, false, 0, "");
}

std::string ask(int port, const char *path)
{
    std::string answer = "none";
    (void)ssci_GET_request("localhost", port, path, {}, &answer, 5);
    return answer;
}

void stop_and_destroy()
{
    EXPECT_EQ(ssci_server_stop(), 0);
    EXPECT_EQ(ssci_server_destory(), 0);
}

TEST(SsciServer, ServesItsRoutesWhileItIsStartedWhateverTheHubDoes)
{
    const common_http_resource route("/svc/route", handler);
    const common_service_resource service("svc", health, 4);
    const int port = free_port();
    const TListener hanging; // takes the connection and says nothing
    for (const int hub_port : {hanging.port(), free_port()}) {
        ASSERT_EQ(create(port, hub_port), 0);
        EXPECT_EQ(ask(port, "/svc/route"), "none");
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(ssci_server_start(), 0);
            EXPECT_EQ(ask(port, "/svc/route"), "got");
            EXPECT_EQ(ask(port, "/svc/health"), "heal");
            EXPECT_NE(ssci_server_start(), 0);
            EXPECT_NE(create(port, hub_port), 0);
            const TAtMost limit(1000);
            EXPECT_EQ(ssci_server_stop(), 0);
            EXPECT_EQ(ask(port, "/svc/route"), "none");
        }
        stop_and_destroy();
    }
}

TEST(SsciServer, IsHarmlessAfterAFailedStart)
{
    EXPECT_NE(create(free_port(), 0), 0);
    EXPECT_NE(create(0, 1), 0);
    EXPECT_NE(create(free_port(), 1, 0), 0);
    EXPECT_NE(ssci_server_start(), 0);
    stop_and_destroy();

    const TListener taken;
    ASSERT_EQ(create(taken.port(), 1), 0);
    EXPECT_NE(ssci_server_start(), 0);
    stop_and_destroy();
}

TEST(HubPresence, GivesTheNameUpSoonWithAHubThatStopsAnswering)
{
    const TScriptedPeer hub("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 0, true); // once
    THubPresence presence({"localhost", hub.port()}, "/x", "{}");
    ASSERT_EQ(presence.start("test"), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const TAtMost limit(1000);
    presence.request_stop();
    presence.join();
}

} // namespace
