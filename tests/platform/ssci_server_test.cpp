#include <climits>
#include <cstring>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/hub/hub.h"
#include "platform/stock/hub/notice_sender.h"

namespace {

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

TEST(SsciServer, ServesItsRoutesWhileItIsStartedWhateverTheHubDoes)
{
    using TAnswer = std::shared_ptr<httpserver::http_response>;
    const common_http_resource route("/svc/route", [](const httpserver::http_request &) -> TAnswer {
        return std::make_shared<ssci_response>("got");
    });
    const auto health = [](char *buffer, size_t size) {
        return strncpy(buffer, "health", size) != nullptr; // fills all of a short buffer
    };
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
        EXPECT_EQ(ssci_server_destory(), 0);
    }
}

TEST(SsciServer, IsHarmlessAfterAFailedStart)
{
    EXPECT_NE(create(free_port(), 0), 0);
    EXPECT_NE(create(free_port(), 1, 0), 0);
    const TListener taken;
    for (const int port : {0, taken.port()}) {
        EXPECT_EQ(create(port, 1) == 0, port != 0);
        EXPECT_NE(ssci_server_start(), 0);
        EXPECT_EQ(ssci_server_stop(), 0);
        EXPECT_EQ(ssci_server_destory(), 0);
    }
}

TEST(HubPresence, AHubThatIsAwayIsAskedEverLessOften)
{
    std::vector<uint64_t> waits_s;
    for (const unsigned failures : {0U, 1U, 2U, 3U, 4U, 5U, 100U, UINT_MAX})
        waits_s.push_back(hub_wait_ms(failures) / 1000);
    EXPECT_EQ(waits_s, (std::vector<uint64_t>{30, 10, 20, 40, 60, 60, 60, 60}));
}

/* Takes one request after the other, when the test says so. */
class THub {
public:
    static constexpr int kNoAnswer = 0;

    THttpPeer peer() const { return {"127.0.0.1", m_listener.port()}; }
    /* The method, the path and the body of a request that comes within that time. */
    std::string take(int status = 200, int within_ms = 2000)
    {
        pollfd ready = {m_listener.fd(), POLLIN, 0};
        if (poll(&ready, 1, within_ms) != 1)
            return "nothing";
        m_client = TRawSocket(m_listener.accept_one());
        const std::string text = m_client.hear([](const std::string &heard) {
            const size_t head = heard.find("\r\n\r\n");
            return head != std::string::npos && (heard.size() > head + 4 || heard.starts_with("DELETE"));
        });
        EXPECT_NE(text.find("\r\nContent-Type: application/json\r\n") == std::string::npos,
                  !text.starts_with("DELETE"));
        if (status != kNoAnswer) {
            (void)m_client.say("HTTP/1.1 " + std::to_string(status) + " x\r\nContent-Length: 0\r\n\r\n");
            (void)m_client.hear(); // up to the end: it has been heard
        }
        return text.substr(0, text.find(" HTTP/1.1\r\n") + 1) + text.substr(text.find("\r\n\r\n") + 4);
    }

private:
    TListener m_listener;
    TRawSocket m_client{TFd()}; // the last one; without an answer it hangs
};

TEST(HubTexts, AreAsTheHubReadsThem)
{
    EXPECT_EQ(hub_address_text("localhost", 10191), R"({"host":"localhost","port":10191})");
    EXPECT_EQ(hub_route_text("/a\"b"), R"({"route":"\/a\"b"})");
    EXPECT_EQ(hub_notice_text("svc", 1, -2, "t\n", 3),
              R"({"session":"svc","category":1,"code":-2,"text":"t\n","level":3})");
    THttpPeer peer = {"", 0};
    for (const char *text : {R"({"host":"localhost","port":0})", R"({"host":"localhost","port":65536})",
                             R"({"host":"localhost"})", R"({"host":null,"port":80})", R"({"port":80})"})
        EXPECT_EQ(hub_address_parse(text, &peer), -1) << text;
    for (const auto &[text, port] :
         {std::pair(R"({"host":"127.0.0.1","port":1})", 1), {R"({"host":"localhost","port":65535})", 65535}}) {
        EXPECT_EQ(hub_address_parse(text, &peer), 0);
        EXPECT_EQ(peer.port, port);
    }
}

TEST(HubPresence, IsTakenBackAtTheEndWhereTheHubTookIt)
{
    for (const int status : {200, 299, 300, 500, THub::kNoAnswer}) {
        SCOPED_TRACE(status);
        THub hub;
        THubPresence presence(hub.peer(), "/x", "{}");
        ASSERT_EQ(presence.start("test"), 0);
        EXPECT_EQ(hub.take(status), "PUT /x {}");
        const TAtMost limit(1000);
        presence.request_stop();
        const bool taken = status == 200 || status == 299;
        EXPECT_TRUE(!taken || hub.take(status == 200 ? 200 : THub::kNoAnswer) == "DELETE /x ");
        presence.join();
        EXPECT_EQ(hub.take(200, 0), "nothing");
    }
}

const std::string kPost = "POST /notify/notices ";

TEST(NoticeSender, DeliversInOrderWhateverTheHubDoesAndSendsEqualOnesInARowOnce)
{
    const TAtMost limit(8000);
    THub hub;
    std::thread end;
    testing::internal::CaptureStderr();
    {
        TNoticeSender sender(hub.peer(), {.queued = 3, .call_ms = 250, .farewell_ms = 10'000});
        const auto send = [&sender](std::initializer_list<const char *> notices) {
            for (const char *one : notices)
                EXPECT_EQ(sender.send(one), 0);
        };
        send({"a"});
        EXPECT_EQ(hub.take(THub::kNoAnswer), kPost + "a"); // and no answer: it is not sent again
        send({"a", "a", "b", "b", "a"});
        for (const char *expected : {"a", "b", "a"})
            EXPECT_EQ(hub.take(), kPost + expected);
        send({"c"});
        EXPECT_EQ(hub.take(THub::kNoAnswer), kPost + "c");
        send({"1", "2", "3", "4", "4"});
        for (const char *expected : {"2", "3"})
            EXPECT_EQ(hub.take(), kPost + expected);
        send({"last"});
        end = std::thread([&hub] {
            EXPECT_EQ(hub.take(), kPost + "4");
            EXPECT_EQ(hub.take(), kPost + "last");
        });
    } // while the sender ends
    end.join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "notice dropped, 3 are queued for the hub: 1\n");
}

TEST(NoticeSender, EndsInTimeWithAHubThatHangs)
{
    THub hub;
    testing::internal::CaptureStderr();
    const TAtMost limit(1500);
    {
        TNoticeSender sender(hub.peer(), {.queued = 3, .call_ms = 60'000, .farewell_ms = 50});
        EXPECT_EQ(sender.send("a"), 0);
        EXPECT_EQ(hub.take(THub::kNoAnswer), kPost + "a");
        EXPECT_EQ(sender.send("b"), 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "1 notices dropped: the hub did not accept them in time\n");
    const TNoticeSender unused(hub.peer(), TNoticeLimits());
}

} // namespace
