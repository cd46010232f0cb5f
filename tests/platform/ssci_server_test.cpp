#include <climits>
#include <cstring>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/hub/hub.h"
#include "platform/stock/hub/notice_sender.h"

namespace {

long long create(int port, int hub_port, int workers = 1)
{
    return ssci_server_create("svc", "localhost", port, workers, "localhost", hub_port, false, 0, "");
}

std::string ask(int port, const char *path) // the result and the answer
{
    std::string answer;
    return std::to_string(ssci_GET_request("localhost", port, path, {}, &answer, 2)) + answer;
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

TEST(SsciServer, ServesItsRoutesWhileItIsStartedWhateverTheHubDoes)
{
    using TAnswer = std::shared_ptr<httpserver::http_response>;
    static const int port = TListener::free_port();
    const common_http_resource route("/svc/route", [](const httpserver::http_request &) -> TAnswer {
        return std::make_shared<ssci_response>("got");
    });
    const common_http_resource dump("/sysmonService/statistics_dump", [](const httpserver::http_request &) -> TAnswer {
        return std::make_shared<ssci_response>(ask(port, "/svc/health")); // while it waits, others are served
    });
    const auto health = [](char *buffer, size_t size) {
        return strncpy(buffer, "health", size) != nullptr; // fills all of a short buffer
    };
    const auto no_health = [](char *, size_t) { return false; };
    const common_service_resource service("svc", health, 4), ill("ill", no_health, 4);
    const std::string registration = "PUT /nameserver/services/svc " + hub_address_text("localhost", port);
    testing::internal::CaptureStderr();
    for (const bool has_hub : {true, false}) {
        THub hub;
        const int hub_port = has_hub ? hub.peer().port : TListener::free_port();
        ASSERT_EQ(create(port, hub_port), 0);
        EXPECT_EQ(ask(port, "/svc/route"), "3");
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(ssci_server_start(), 0);
            EXPECT_EQ(hub.take(THub::kNoAnswer, has_hub ? 2000 : 0), has_hub ? registration : "nothing");
            for (const auto &[path, answer] : {std::pair("/svc/route", "0got"),
                                               {"/svc/health", "0heal"},
                                               {"/ill/health", "2"},
                                               {"/sysmonService/statistics_dump", "00heal"}})
                EXPECT_EQ(ask(port, path), answer) << path;
            EXPECT_EQ(ssci_server_start(), EALREADY);
            EXPECT_EQ(create(port, hub_port), EEXIST);
            const TAtMost limit(1000);
            EXPECT_EQ(ssci_server_stop(), 0);
            EXPECT_EQ(ask(port, "/svc/route"), "3");
        }
        EXPECT_EQ(ssci_server_destory(), 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SsciServer, RejectsWrongArgumentsAndIsHarmlessAfterAFailedStart)
{
    for (const int workers : {0, 65})
        EXPECT_EQ(create(80, 1, workers), EINVAL);
    for (const auto &[name, port, hub_port] : {std::tuple("", 80, 1), {nullptr, 80, 1}, {"x", 0, 1}, {"x", 80, 0}})
        EXPECT_EQ(ssci_server_create(name, "localhost", port, 1, "localhost", hub_port, false, 0, ""), EINVAL);
    EXPECT_EQ(ssci_server_start() + ssci_server_stop(), EINVAL);
    for (const int workers : {1, 64}) {
        const TListener taken;
        EXPECT_EQ(create(taken.port(), 1, workers), 0);
        EXPECT_EQ(ssci_server_start(), EADDRINUSE);
        EXPECT_EQ(ssci_server_stop() + ssci_server_destory(), 0);
    }
}

TEST(HubPresence, AHubThatIsAwayIsAskedEverLessOften)
{
    for (const auto &[failures, wait_s] : {std::pair(0U, 30U), {1, 10}, {2, 20}, {3, 40}, {4, 60}, {UINT_MAX, 60}})
        EXPECT_EQ(hub_wait_ms(failures), wait_s * 1000) << failures;
}

std::vector<unsigned> g_failures; // before each pause
size_t g_puts = 0;                // to be made

TEST(HubPresence, IsTakenBackAtTheEndWhereTheHubTookIt)
{
    for (const auto &[answers, failures, taken, log] :
         {std::tuple(std::vector<int>{200}, std::vector<unsigned>{0}, true, ""),
          {{299}, {0}, true, ""},
          {{300}, {1}, false, ""},
          {{THub::kNoAnswer}, {1}, false, ""},
          {{500, 200, 500, 500}, {1, 0, 1, 2}, true, "hub: lost /x\n"}}) {
        testing::internal::CaptureStderr();
        g_failures.clear();
        g_puts = answers.size();
        THub hub;
        THubPresence presence(hub.peer(), "/x", "{}", [](unsigned count) -> uint64_t {
            g_failures.push_back(count);
            return g_failures.size() < g_puts ? 0 : 60'000;
        });
        ASSERT_EQ(presence.start("test"), 0);
        EXPECT_EQ(presence.start("test"), EALREADY);
        for (const int answer : answers)
            EXPECT_EQ(hub.take(answer), "PUT /x {}");
        const TAtMost limit(1000);
        presence.request_stop();
        EXPECT_TRUE(!taken || hub.take(answers[0] == 299 ? THub::kNoAnswer : 200) == "DELETE /x ");
        presence.join();
        EXPECT_EQ(hub.take(200, 0), "nothing");
        EXPECT_EQ(g_failures, failures);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), log);
    }
}

const std::string kPost = "POST /notify/notices ";

TEST(NoticeSender, DeliversInOrderWhateverTheHubDoesAndSendsEqualOnesInARowOnce)
{
    const TAtMost limit(8000);
    THub hub;
    std::thread end;
    {
        TNoticeSender sender(hub.peer(), {.call_ms = 250, .farewell_ms = 10'000});
        const auto send = [&sender](const char *notice) { EXPECT_EQ(sender.send(notice), 0); };
        send("a");
        EXPECT_EQ(hub.take(THub::kNoAnswer), kPost + "a"); // and no answer: it is not sent again
        for (const char *notice : {"a", "a", "b", "b", "a"})
            send(notice);
        for (const char *expected : {"a", "b", "a"})
            EXPECT_EQ(hub.take(), kPost + expected);
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // the sender is idle
        send("c");
        EXPECT_EQ(hub.take(THub::kNoAnswer), kPost + "c");
        send("last");
        end = std::thread([&hub] { EXPECT_EQ(hub.take(), kPost + "last"); });
    } // while the sender ends
    end.join();
}

TEST(NoticeSender, QueuesSomeAndEndsInTimeWithAHubThatHangs)
{
    THub hub;
    testing::internal::CaptureStderr();
    const TAtMost limit(900);
    {
        TNoticeSender sender(hub.peer(), {.call_ms = 60'000, .farewell_ms = 50});
        EXPECT_EQ(sender.send("a"), 0);
        EXPECT_EQ(hub.take(THub::kNoAnswer), kPost + "a");
        for (int i = 0; i < 33; ++i)
            EXPECT_EQ(sender.send(std::to_string(i)), 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "notice dropped, 32 are queued for the hub: 0\n"
                                                      "32 notices dropped: the hub did not accept them in time\n");
    const TNoticeSender unused(hub.peer(), TNoticeLimits());
}

} // namespace
