#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>

#include "platform/interrupt.h"
#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/http_server.h"
#include "platform/stock/hub.h"

namespace {

using httpserver::http_request;

/* Answers with the request as it came in. */
T_HTTP_HANDLER told(const std::string &method)
{
    return [method](const http_request &request) {
        return std::make_shared<ssci_response>(method + " a=" + request.get_arg("a") +
                                               " b c=" + request.get_arg("b c") + " body=" + request.get_content());
    };
}

class SsciClient : public testing::Test {
protected:
    SsciClient() : m_server({{"/told", {told("GET"), told("PUT"), told("POST"), told("DELETE")}}}, {})
    {
        setenv("http_proxy", "http://127.0.0.1:1", 1); // must not be asked
        EXPECT_EQ(m_server.start(0, 1), 0);
    }
    THttpServer m_server;
    std::string m_answer = "before";
};

TEST_F(SsciClient, CarriesArgumentsAndBodies)
{
    const int port = m_server.port();
    const ssci_params params = {{"a", "x&y=1 #%/\xc3\xa9"}, {"b c", ""}, {"a", "second"}};
    EXPECT_EQ(ssci_GET_request("127.0.0.1", port, "/told", params, &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "GET a=x&y=1 #%/\xc3\xa9 b c= body=");
    EXPECT_EQ(ssci_DELETE_request("localhost", port, "told", {{"b c", "2"}}, &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "DELETE a= b c=2 body=");
    EXPECT_EQ(ssci_PUT_request("LOCALHOST", port, "told?a=3", "{}", &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "PUT a=3 b c= body={}");
    EXPECT_EQ(ssci_POST_request("localhost", port, "/told", std::string(40000, 'x'), &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "POST a= b c= body=" + std::string(40000, 'x'));
    EXPECT_EQ(ssci_PUT_request("localhost", port, "/told", "", nullptr, 5), SSCI_OK);
    EXPECT_EQ(__ssci_errno(), 0);
}

TEST_F(SsciClient, RefusesWrongArguments)
{
    EXPECT_EQ(ssci_GET_request(nullptr, 80, "/", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("localhost", 80, nullptr, {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("localhost", 80, "/a b", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("localhost", 80, "/\r\nX: 1", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("localhost", 0, "/", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("localhost", 65536, "/", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("localhost", 80, "/", {}, &m_answer, 0), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("example.com", 80, "/", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_GET_request("127.0.0.1:80@example.com", 80, "/", {}, &m_answer, 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_nameserver_init(nullptr, 80), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(m_answer, "before");
}

struct T_PEER_CASE {
    const char *name;
    const char *answer;
    size_t filler_kib;
    bool holds;
    long long result;
};
class SsciPeer : public SsciClient, public testing::WithParamInterface<T_PEER_CASE> {};

TEST_P(SsciPeer, GivesADefinedResult)
{
    const T_PEER_CASE &one = GetParam();
    const TScriptedPeer peer(one.answer, std::string(1024, 'x'), one.filler_kib, one.holds);
    const uint64_t lasted_ms =
        duration_ms([&] { EXPECT_EQ(ssci_GET_request("localhost", peer.port(), "/", {}, &m_answer, 1), one.result); });
    EXPECT_LT(lasted_ms, 2500U);
    EXPECT_EQ(__ssci_errno() != 0, one.result == SSCI_TRANSPORT_ERROR) << ssci_strerror(__ssci_errno());
    EXPECT_EQ(m_answer == "before", one.result != SSCI_OK);
}

INSTANTIATE_TEST_SUITE_P(
    Peers, SsciPeer,
    testing::Values(
        T_PEER_CASE{"Hangs", "", 0, true, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"HangsInMidAnswer", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{", 0, true, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"Closes", "", 0, false, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"ClosesInMidAnswer", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{", 0, false,
                    SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"IsNoHttp", "SSH-2.0-x\r\n", 0, false, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"OneMebibyte", "HTTP/1.1 200 OK\r\n\r\n", 1024, false, SSCI_OK},
        T_PEER_CASE{"MoreThanThat", "HTTP/1.1 200 OK\r\n\r\nx", 1024, false, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"HundredMegabytes", "HTTP/1.1 200 OK\r\n\r\n", 100000, false, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"HeaderWithoutEnd", "HTTP/1.1 200 OK\r\nX: ", 100000, false, SSCI_TRANSPORT_ERROR},
        T_PEER_CASE{"NoContent", "HTTP/1.1 204 No Content\r\n\r\n", 0, true, SSCI_OK},
        T_PEER_CASE{"Redirect", "HTTP/1.1 302 Found\r\nLocation: /told\r\nContent-Length: 0\r\n\r\n", 0, true,
                    SSCI_BAD_STATUS},
        T_PEER_CASE{"ServerError", "HTTP/1.1 500 No\r\nContent-Length: 2\r\n\r\n{}", 0, true, SSCI_BAD_STATUS}),
    [](const auto &one) { return std::string(one.param.name); });

TEST_F(SsciClient, TellsAnAbsentPeerPerThread)
{
    EXPECT_EQ(ssci_GET_request("localhost", free_port(), "/", {}, &m_answer, 5), SSCI_TRANSPORT_ERROR);
    EXPECT_NE(std::string(ssci_strerror(__ssci_errno())).find("connect"), std::string::npos);
    std::thread([] { EXPECT_EQ(__ssci_errno(), 0); }).join();
}

TEST_F(SsciClient, GivesUpWhenAskedTo)
{
    const TScriptedPeer peer("", "", 0, true);
    std::atomic<bool> flag{false};
    std::thread asking([&flag] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        flag = true;
    });
    platform_interrupt_on(&flag);
    EXPECT_LT(duration_ms([&] {
                  EXPECT_EQ(ssci_GET_request("localhost", peer.port(), "/", {}, &m_answer, 10), SSCI_TRANSPORT_ERROR);
              }),
              1000U);
    platform_interrupt_on(nullptr);
    asking.join();
}

struct T_LOOKUP_CASE {
    const char *name;
    const char *answer; // of the name server; %d: the port of the service
    const char *service;
    long long result;
};
class SsciLookup : public SsciClient, public testing::WithParamInterface<T_LOOKUP_CASE> {};

TEST_P(SsciLookup, FindsTheServiceOrSaysSo)
{
    const T_LOOKUP_CASE &one = GetParam();
    char answer[128];
    snprintf(answer, sizeof(answer), "HTTP/1.1 %s", one.answer);
    if (char *const port = strstr(answer, "PORT"); port != nullptr) {
        std::string text = answer;
        text.replace(static_cast<size_t>(port - answer), 4, std::to_string(m_server.port()));
        snprintf(answer, sizeof(answer), "%s", text.c_str());
    }
    const TScriptedPeer name_server(*one.answer != '\0' ? answer : "", "", 0, *one.answer == '\0');
    ASSERT_EQ(ssci_nameserver_init("localhost", name_server.port()), SSCI_OK);
    EXPECT_EQ(ssci_GET_request(one.service, "told", {{"a", "1"}}, &m_answer, 2), one.result);
    EXPECT_EQ(m_answer, one.result == SSCI_OK ? "GET a=1 b c= body=" : "before");
}

INSTANTIATE_TEST_SUITE_P(
    Answers, SsciLookup,
    testing::Values(
        T_LOOKUP_CASE{"Known", "200 OK\r\n\r\n{\"host\":\"localhost\",\"port\":PORT}", "some service", SSCI_OK},
        T_LOOKUP_CASE{"Elsewhere", "200 OK\r\n\r\n{\"host\":\"10.0.0.1\",\"port\":PORT}", "some", SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"PortAsText", "200 OK\r\n\r\n{\"host\":\"localhost\",\"port\":\"PORT\"}", "some",
                      SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"PortTooLarge", "200 OK\r\n\r\n{\"host\":\"localhost\",\"port\":4294967297}", "some",
                      SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"NoObject", "200 OK\r\n\r\n[1]", "some", SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"Empty", "200 OK\r\n\r\n", "some", SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"NotFound", "404 No\r\n\r\n", "some", SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"Hangs", "", "some", SSCI_UNKNOWN_SERVICE},
        T_LOOKUP_CASE{"NoName", "404 No\r\n\r\n", "", SSCI_WRONG_ARGUMENTS}),
    [](const auto &one) { return std::string(one.param.name); });

TEST(HubTexts, AreJsonWhateverTheyCarry)
{
    EXPECT_EQ(hub_address_text("localhost", 10191), R"({"host":"localhost","port":10191})");
    EXPECT_EQ(hub_route_text("/a\"b"), R"({"route":"\/a\"b"})");
    EXPECT_EQ(hub_notice_text("s", 1, -2, "a\nb", 3),
              R"({"session":"s","category":1,"code":-2,"text":"a\nb","level":3})");
}

} // namespace
