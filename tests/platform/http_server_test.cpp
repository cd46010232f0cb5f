#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <sys/resource.h>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/http_server.h"

namespace {

using httpserver::http_request;
using T_RESPONSE = std::shared_ptr<httpserver::http_response>;

constexpr uint64_t kPhaseMs = 300;
constexpr size_t kLargeAnswer = size_t{16} << 20;

T_RESPONSE text(const std::string &body)
{
    return std::make_shared<ssci_response>(body, 200, "application/json");
}

size_t descriptors()
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

T_RESPONSE args(const http_request &request)
{
    return text("[" + request.get_arg("a") + "][" + request.get_arg("b") + "]");
}
T_RESPONSE length(const http_request &request)
{
    return text("length " + std::to_string(request.get_content().size()));
}
std::atomic<bool> g_slow_ended;
T_RESPONSE slow(const http_request &)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * kPhaseMs));
    g_slow_ended = true;
    return text("slow");
}
T_RESPONSE asks(const http_request &request) // another service, which is in no hurry
{
    (void)ssci_GET_request("localhost", std::stoi(request.get_arg("a")), "/", {}, nullptr, 20);
    return text("asked");
}

std::vector<T_HTTP_ROUTE> routes()
{
    return {{"/args", {args, length}},
            {"/args", {nullptr, nullptr, args}}, // too late
            {"/slow", {slow}},
            {"/asks", {asks}},
            {"/large", {[](const http_request &) { return text(std::string(kLargeAnswer, 'x')); }}},
            {"/null", {[](const http_request &) { return T_RESPONSE(); }}},
            {"/throws", {[](const http_request &) -> T_RESPONSE { throw std::runtime_error("no"); }}},
            {"/throws_int", {[](const http_request &) -> T_RESPONSE { throw 1; }}}};
}

class HttpServer : public testing::Test {
protected:
    void start(T_HTTP_LIMITS limits)
    {
        m_server = std::make_unique<THttpServer>(routes(), limits);
        ASSERT_EQ(m_server->start(0, 2), 0);
    }
    void SetUp() override { start({.phase_ms = kPhaseMs}); }
    std::string ask(std::string_view request) const
    {
        const TRawClient client(m_server->port());
        (void)client.say(request); // the server may have had enough before the end
        return client.hear_answer();
    }
    std::unique_ptr<THttpServer> m_server;
};

std::string get(const std::string &target, const std::string &headers = "")
{
    return "GET " + target + " HTTP/1.1\r\n" + headers + "\r\n";
}
std::string put(const std::string &headers, const std::string &body)
{
    return "PUT /args HTTP/1.1\r\n" + headers + "\r\n" + body;
}
std::string chunks(size_t count) // of 4 KiB
{
    std::string body;
    for (size_t i = 0; i < count; ++i)
        body += "1000\r\n" + std::string(4096, 'x') + "\r\n";
    return body + "0\r\n\r\n";
}
const std::string kChunked = "Transfer-Encoding: chunked\r\n";

TEST_F(HttpServer, KeepsItsRulesAndServesOn)
{
    const struct {
        std::string request;
        const char *begin; // of the answer, behind "HTTP/1.1 "
        const char *part;  // somewhere in it
    } cases[] = {{get("/args?a=1&b=x%20y"), "200", "\r\n\r\n[1][x y]"},
                 {get("/args"), "200", "Content-Type: application/json\r\n"},
                 {get("/args?a=1&a=2"), "200", "[1][]"},
                 {get("/args?a=x%00y&b=2"), "200", "[x][2]"},
                 {get("/args?a=x+y%2B"), "200", "[x y+][]"},
                 {get("/args?a&b&A=1"), "200", "[][]"},
                 {get("/args?a=%zz%4"), "200", "[%zz%4][]"},
                 {get("/argsx"), "404", "{ \"error\": \"unknown path\" }"},
                 {get("http://elsewhere/args"), "404", "error"},
                 {"POST /args HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", "405", "Allow: GET, PUT\r\n"},
                 {"BREW /slow HTTP/1.1\r\n\r\n", "405", "Allow: GET\r\n"},
                 {get("/args", "Host: example.com\r\n"), "403", "{ \"error\": \"host refused\" }"},
                 {get("/x", "Host: example.com\r\n"), "403", "error"},
                 {put("Content-Length: 65536\r\n", std::string(65536, 'x')), "200", "length 65536"},
                 {put("Content-Length: 65537\r\n", std::string(65537, 'x')), "413", "body too large\" }"},
                 {put("Content-Length: 99999999999999999999\r\n", ""), "413", ""},
                 {put("Content-Length: -1\r\n", ""), "400", ""},
                 {put("Content-Length: 2\r\n", "{}{}{}\r\n\r\n"), "200", "length 2"},
                 {put(kChunked, chunks(16)), "200", "length 65536"},
                 {put(kChunked, chunks(17)), "413", "{ \"error\": \"body too large\" }"},
                 {put(kChunked + "Content-Length: 3\r\n", chunks(17)), "413", "error"},
                 {put(kChunked, "zz\r\nxx"), "400", ""},
                 {get("/" + std::string(20000, 'x')), "414", ""},
                 {get("/args", "X: " + std::string(20000, 'x') + "\r\n"), "431", ""},
                 {"\x16\x03\x01\x02 \r\n\r\n", "", ""},
                 {get("/throws"), "500", "{ \"error\": \"internal error\" }"},
                 {get("/throws_int"), "500", "error"},
                 {get("/null"), "500", "error"},
                 {get("/slow"), "200", "slow"}}; // the last handler has all the time it wants
    for (const auto &one : cases) {
        SCOPED_TRACE(one.request.substr(0, 100));
        const std::string answer = ask(one.request);
        EXPECT_TRUE(answer.starts_with(std::string("HTTP/1.1 ") + one.begin)) << answer;
        EXPECT_NE(answer.find(one.part), std::string::npos) << answer;
    }
    for (const char *host : {"LocalHost:10191", "127.0.0.1", "[::1]:80"})
        EXPECT_EQ(ask(get("/args", std::string("host: ") + host + "\r\n")).substr(9, 3), "200") << host;
    for (const char *host : {"localhost.example.com", "localhost:80@example.com", "localhost:", "localhost\r\nHost: x"})
        EXPECT_EQ(ask(get("/args", std::string("Host: ") + host + "\r\n")).substr(9, 3), "403") << host;
}

TEST_F(HttpServer, KeepsTheConnectionForTheNextRequest)
{
    const TRawClient client(m_server->port());
    for (const char *expected : {"200", "404", "200"}) {
        /* Two of the pauses are longer than a phase: each request has its own. */
        std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs * 2 / 3));
        ASSERT_TRUE(client.say(get(*expected == '4' ? "/nowhere" : "/args?a=1")));
        EXPECT_EQ(client.hear_answer().substr(9, 3), expected);
    }
    ASSERT_TRUE(client.say(put("Content-Length: 3\r\n", "abc") + put("Content-Length: 1\r\n", "a")));
    const std::string both = client.hear([](const std::string &heard) { return heard.ends_with("length 1"); });
    EXPECT_NE(both.find("length 3"), std::string::npos) << both;
}

TEST_F(HttpServer, CutsOffWhoTakesTooLong)
{
    const std::string beginnings[] = {"", get("/args").substr(0, 9), put("Content-Length: 1000\r\n", ""),
                                      put(kChunked, "1000\r\n")};
    for (const std::string &beginning : beginnings) {
        const TRawClient client(m_server->port());
        (void)client.say(beginning);
        const TAtMost limit(kPhaseMs * 4);
        while (client.say("x")) // never silent for long
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const TRawClient idle(m_server->port());
    EXPECT_EQ(idle.hear_all(), "");
    const TRawClient lazy(m_server->port());
    (void)lazy.say(get("/large"));
    const size_t first = lazy.hear([](const std::string &heard) { return !heard.empty(); }).size();
    std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs * 2));
    EXPECT_LT(first + lazy.hear_all().size(), kLargeAnswer);
}

TEST_F(HttpServer, BoundsTheConnections)
{
    rlimit before = {};
    (void)getrlimit(RLIMIT_NOFILE, &before);
    const rlimit low = {64 + 4, before.rlim_max}; // four above what the rest of the process keeps
    for (const bool by_descriptors : {false, true}) {
        m_server->stop();
        (void)setrlimit(RLIMIT_NOFILE, by_descriptors ? &low : &before);
        start({.phase_ms = kPhaseMs, .connections = by_descriptors ? 128U : 4U});
        (void)setrlimit(RLIMIT_NOFILE, &before);

        const size_t before_all = descriptors();
        std::vector<std::unique_ptr<TRawClient>> clients;
        for (int i = 0; i < 10; ++i) {
            clients.push_back(std::make_unique<TRawClient>(m_server->port()));
            (void)clients.back()->say("GET /ar"); // a request that does not end
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs / 3));
        EXPECT_EQ(descriptors(), before_all + clients.size() + 4);
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos); // once the first were cut off
    }
}

TEST_F(HttpServer, StopsAtOnceButForRunningHandlers)
{
    m_server->stop();
    start({}); // with the usual patience
    const TRawClient idle(m_server->port()), slow_client(m_server->port()), lazy(m_server->port());
    const TRawClient running(m_server->port());
    (void)slow_client.say("GET /ar");
    (void)lazy.say(get("/large"));
    (void)ask(get("/args")); // by now the others are known
    g_slow_ended = false;
    (void)running.say(get("/slow"));
    const TListener hanging;
    const TRawClient asking(m_server->port());
    (void)asking.say(get("/asks?a=" + std::to_string(hanging.port())));
    std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs / 3));
    const TAtMost limit(1000);
    m_server->stop();
    EXPECT_EQ(idle.hear_all(), "");
    EXPECT_TRUE(g_slow_ended);
}

} // namespace
