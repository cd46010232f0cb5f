#include <cstdlib>
#include <curl/curl.h>
#include <memory>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/http/http_server.h"
#include "platform/stop_soon.h"

namespace {

using httpserver::http_request;

/* Answers with the request as it came in. */
THttpHandler echo(const std::string &method)
{
    return [method](const http_request &request) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // some time is left for a call, not just any
        return std::make_shared<ssci_response>(method + " a=" + request.get_arg("a") +
                                               " b c=" + request.get_arg("b c") + " body=" + request.get_content());
    };
}

class SsciClient : public testing::Test {
protected:
    SsciClient() : m_server({{"/echo", {echo("GET"), echo("PUT"), echo("POST"), echo("DELETE")}}}, {})
    {
        setenv("http_proxy", "http://127.0.0.1:1", 1); // must not be asked
        EXPECT_EQ(m_server.start(0, 1), 0);
    }
    THttpServer m_server;
    std::string m_answer = "before";
};

TEST_F(SsciClient, SendsArgumentsAndBodies)
{
    const int port = m_server.port();
    const ssci_params params = {{"a", "x&y=1 #%/\xc3\xa9"}, {"b c", ""}, {"a", "second"}};
    EXPECT_EQ(ssci_GET_request("127.0.0.1", port, "/echo", params, &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "GET a=x&y=1 #%/\xc3\xa9 b c= body=");
    EXPECT_EQ(ssci_DELETE_request("localhost", port, "echo", {{"b c", "2"}}, &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "DELETE a= b c=2 body=");
    const std::string with_nul("{\0}", 3);
    EXPECT_EQ(ssci_PUT_request("LOCALHOST", port, "echo?a=3", with_nul, &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "PUT a=3 b c= body=" + with_nul);
    EXPECT_EQ(ssci_POST_request("localhost", port, "/echo", std::string(40000, 'x'), &m_answer, 5), SSCI_OK);
    EXPECT_EQ(m_answer, "POST a= b c= body=" + std::string(40000, 'x'));
    EXPECT_EQ(ssci_PUT_request("localhost", port, "/echo", "", nullptr, 5), SSCI_OK);
    EXPECT_EQ(ssci_GET_request("localhost", port, "/x/../echo", {}, nullptr, 5), SSCI_BAD_STATUS); // as it stands
}

TEST_F(SsciClient, RejectsWrongArguments)
{
    const auto ask = [this](const char *host, int port, const char *path, int timeout_s) {
        EXPECT_EQ(ssci_GET_request("localhost", TListener::free_port(), "/", {}, nullptr, 1), SSCI_TRANSPORT_ERROR);
        const long long result = ssci_GET_request(host, port, path, {}, &m_answer, timeout_s);
        EXPECT_EQ(__ssci_errno(), 0);
        return result;
    };
    for (const char *host : {static_cast<const char *>(nullptr), "example.com", "127.0.0.1:80@example.com"})
        EXPECT_EQ(ask(host, 80, "/", 1), SSCI_WRONG_ARGUMENTS) << host;
    for (const char *path : {static_cast<const char *>(nullptr), "/a b", "/\r\nX: 1", "/\x7f", "/#"})
        EXPECT_EQ(ask("localhost", 80, path, 1), SSCI_WRONG_ARGUMENTS) << path;
    for (const int port : {0, 65536})
        EXPECT_EQ(ask("localhost", port, "/", 1), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ask("localhost", 80, "/", 0), SSCI_WRONG_ARGUMENTS);
    for (const auto &[service, path, timeout_s] :
         {std::tuple("", "/", 1), {nullptr, "/", 1}, {"x", nullptr, 1}, {"x", "/", 0}})
        EXPECT_EQ(ssci_GET_request(service, path, {}, &m_answer, timeout_s), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(__ssci_errno(), 0);
    EXPECT_EQ(ssci_nameserver_init(nullptr, 80), SSCI_WRONG_ARGUMENTS);
    EXPECT_EQ(ssci_nameserver_init("10.0.0.1", 1) + ssci_nameserver_init("localhost", 65535), SSCI_OK);
    EXPECT_EQ(m_answer, "before");
}

TEST_F(SsciClient, ReturnsADefinedResultWhateverThePeerDoes)
{
    std::string head = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < 63; ++i)
        head += "X: " + std::string(1019, 'x') + "\r\n";
    head += "X: " + std::string(1000, 'x'); // 64 KiB with what follows
    for (const auto &[answer, filler_kib, holds, result, error] :
         {std::tuple(std::string(), size_t{0}, true, SSCI_TRANSPORT_ERROR, CURLE_OPERATION_TIMEDOUT),
          {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{", 0, true, SSCI_TRANSPORT_ERROR, CURLE_OPERATION_TIMEDOUT},
          {"", 0, false, SSCI_TRANSPORT_ERROR, CURLE_GOT_NOTHING},
          {"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{", 0, false, SSCI_TRANSPORT_ERROR, CURLE_PARTIAL_FILE},
          {"SSH-2.0-x\r\n", 0, false, SSCI_TRANSPORT_ERROR, CURLE_UNSUPPORTED_PROTOCOL},
          {"HTTP/1.1 200 OK\r\n\r\n", 1024, false, SSCI_OK, CURLE_OK},
          {"HTTP/1.1 200 OK\r\n\r\nx", 1024, false, SSCI_TRANSPORT_ERROR, CURLE_FILESIZE_EXCEEDED},
          {"HTTP/1.1 200 OK\r\nX: ", 100000, false, SSCI_TRANSPORT_ERROR, CURLE_OUT_OF_MEMORY},
          {head + "\r\n\r\n", 0, false, SSCI_OK, CURLE_OK},
          {head + "x\r\n\r\n", 0, false, SSCI_TRANSPORT_ERROR, CURLE_WRITE_ERROR},
          {"HTTP/1.1 204 No Content\r\n\r\n", 0, true, SSCI_OK, CURLE_OK},
          {"HTTP/1.1 302 Found\r\nLocation: /echo\r\nContent-Length: 0\r\n\r\n", 0, true, SSCI_BAD_STATUS, CURLE_OK},
          {"HTTP/1.1 409 No\r\nContent-Length: 2\r\n\r\n{}", 0, true, SSCI_BAD_STATUS, CURLE_OK}}) {
        SCOPED_TRACE(answer);
        m_answer = "before";
        const TScriptedPeer peer(answer, filler_kib, holds);
        const TAtMost limit(2500);
        EXPECT_EQ(ssci_GET_request("localhost", peer.port(), "/", {}, &m_answer, 1), result);
        EXPECT_EQ(__ssci_errno(), error);
        EXPECT_EQ(m_answer == "before", result == SSCI_TRANSPORT_ERROR);
    }
    EXPECT_EQ(m_answer, "{}") << "the reason of the refusal";
    EXPECT_EQ(ssci_GET_request("localhost", TListener::free_port(), "/", {}, &m_answer, 5), SSCI_TRANSPORT_ERROR);
    EXPECT_NE(std::string(ssci_strerror(__ssci_errno())).find("connect"), std::string::npos);
    std::thread([] { EXPECT_EQ(__ssci_errno(), 0); }).join(); // each thread has its own
}

TEST_F(SsciClient, IsCancelledByAStop)
{
    const TScriptedPeer peer("", 0, true);
    const TStopSoon stop(300); // when no timer of the library is about to end its wait
    const TAtMost limit(900);
    EXPECT_EQ(ssci_GET_request("localhost", peer.port(), "/", {}, &m_answer, 10), SSCI_CANCELLED);
    EXPECT_EQ(ssci_nameserver_init("localhost", peer.port()), SSCI_OK);
    EXPECT_EQ(ssci_GET_request("some service", "/", {}, &m_answer, 10), SSCI_CANCELLED);
    EXPECT_EQ(m_answer, "before");
}

TEST_F(SsciClient, FindsAServiceByNameOrFails)
{
    const auto ask = [this](const std::string &name_server_answer) {
        const TScriptedPeer name_server(name_server_answer, 0, name_server_answer.empty());
        EXPECT_EQ(ssci_nameserver_init("localhost", name_server.port()), SSCI_OK);
        return ssci_GET_request("some service", "echo", {{"a", "1"}}, &m_answer, 1);
    };
    const std::string ok = "HTTP/1.1 200 OK\r\n\r\n", port = std::to_string(m_server.port());
    const std::string refused = R"({"host":"10.0.0.1","port":)" + port + "}";
    testing::internal::CaptureStderr();
    for (const std::string &answer :
         {ok + refused, ok + R"({"host":"localhost","port":"80"})", ok + R"({"host":"localhost","port":4294967297})",
          ok + R"({"host":"localhost","port":0})", ok + R"({"host":"localhost","port":65536})",
          ok + R"({"host":"localhost"})", ok + R"({"host":null,"port":80})", ok + R"({"port":80})", ok + "[1]", ok,
          std::string("HTTP/1.1 404 No\r\n\r\n"), std::string()})
        EXPECT_EQ(ask(answer), SSCI_UNKNOWN_SERVICE) << answer;
    for (const char *service : {"recStreamService", "sysmonService"}) // at their usual ports
        EXPECT_NE(ssci_GET_request(service, "/", {}, nullptr, 1), SSCI_UNKNOWN_SERVICE);
    EXPECT_EQ(m_answer, "before");
    EXPECT_EQ(ask(ok + R"({"host":"localhost","port":)" + port + "}"), SSCI_OK);
    EXPECT_EQ(m_answer, "GET a=1 b c= body=");
    EXPECT_EQ(ask(ok + refused), SSCI_UNKNOWN_SERVICE);
    const std::string line =
        "name server: the answer for some service is not an address on this machine, ignored: " + refused + "\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line); // once per change
}

} // namespace
