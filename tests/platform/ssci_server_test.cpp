#include <cstring>
#include <gtest/gtest.h>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/hub/hub.h"
#include "platform/stock/hub/notice_sender.h"

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
    const TListener hanging; // accepts the connection and sends nothing
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

TEST(HubPresence, UnregistersSoonWithAHubThatStopsAnswering)
{
    const TScriptedPeer hub("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 0, true); // once
    THubPresence presence({"localhost", hub.port()}, "/x", "{}");
    ASSERT_EQ(presence.start("test"), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const TAtMost limit(1000);
    presence.request_stop();
    presence.join();
}

/* Accepts one request after the other, when the test calls take(), and keeps their bodies. */
class TNoticeBoard {
public:
    T_HTTP_PEER peer() const { return {"127.0.0.1", m_listener.port()}; }
    std::string take(bool answers = true)
    {
        pollfd ready = {m_listener.fd(), POLLIN, 0};
        if (poll(&ready, 1, 2000) != 1)
            return "nothing came";
        TFd client(accept4(m_listener.fd(), nullptr, nullptr, SOCK_CLOEXEC));
        std::string text;
        char chunk[4096];
        while (text.find("\r\n\r\n") == std::string::npos || text.ends_with("\r\n\r\n")) {
            const ssize_t got = recv(client.get(), chunk, sizeof(chunk), 0);
            if (got <= 0)
                return "cut off";
            text.append(chunk, static_cast<size_t>(got));
        }
        if (answers)
            (void)send(client.get(), "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 38, MSG_NOSIGNAL);
        else
            m_hanging = std::move(client);
        EXPECT_TRUE(text.starts_with("POST /notify/notices HTTP/1.1\r\n")) << text;
        return text.substr(text.find("\r\n\r\n") + 4);
    }

private:
    TListener m_listener;
    TFd m_hanging;
};

TEST(NoticeSender, DeliversInOrderWhateverTheHubDoesAndSendsEqualOnesInARowOnce)
{
    TNoticeBoard hub;
    std::thread end;
    testing::internal::CaptureStderr();
    {
        TNoticeSender sender(hub.peer(), {.queued = 3, .call_ms = 250, .farewell_ms = 2000});
        const auto send = [&sender](std::initializer_list<const char *> notices) {
            const TAtMost limit(1000);
            for (const char *one : notices)
                EXPECT_EQ(sender.send(one), 0);
        };
        send({"a"});
        EXPECT_EQ(hub.take(false), "a"); // without an answer: it is not sent again
        send({"a", "a", "b", "b", "a"});
        for (const char *expected : {"a", "b", "a"})
            EXPECT_EQ(hub.take(), expected);
        send({"c"});
        EXPECT_EQ(hub.take(false), "c");
        send({"1", "2", "3", "4", "4"});
        for (const char *expected : {"2", "3"})
            EXPECT_EQ(hub.take(), expected);
        send({"last"});
        end = std::thread([&hub] {
            EXPECT_EQ(hub.take(), "4");
            EXPECT_EQ(hub.take(), "last");
        });
    } // while the sender ends
    end.join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "notice dropped, 3 are queued for the hub: 1\n");
}

TEST(NoticeSender, EndsInTimeWithAHubThatHangs)
{
    TNoticeBoard hub;
    testing::internal::CaptureStderr();
    const TAtMost limit(1500);
    {
        TNoticeSender sender(hub.peer(), {.queued = 3, .call_ms = 60'000, .farewell_ms = 50});
        EXPECT_EQ(sender.send("a"), 0);
        EXPECT_EQ(hub.take(false), "a");
        EXPECT_EQ(sender.send("b"), 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "1 notices dropped: the hub did not accept them in time\n");
    const TNoticeSender unused(hub.peer(), T_NOTICE_LIMITS());
}

} // namespace
