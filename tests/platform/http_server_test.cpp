#include <atomic>
#include <cerrno>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
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

size_t entries(const char *folder)
{
    size_t count = 0;
    DIR *dir = opendir(folder);
    while (readdir(dir) != nullptr)
        ++count;
    closedir(dir);
    return count;
}

T_RESPONSE args(const http_request &request)
{
    return text("[" + request.get_arg("a") + "][" + request.get_arg("b") + "]");
}
T_RESPONSE length(const http_request &request)
{
    return text("length " + std::to_string(request.get_content().size()));
}
T_RESPONSE slow(const http_request &)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2 * kPhaseMs));
    return text("slow");
}
T_RESPONSE asks(const http_request &request) // another service, which is in no hurry
{
    (void)ssci_GET_request("localhost", std::stoi(request.get_arg("a")), "/", {}, nullptr, 20);
    return text("asked");
}
T_RESPONSE signals(const http_request &)
{
    sigset_t set;
    pthread_sigmask(SIG_BLOCK, nullptr, &set);
    return text(sigismember(&set, SIGTERM) == 1 && sigismember(&set, SIGHUP) == 1 ? "blocked" : "taken");
}

std::vector<T_HTTP_ROUTE> routes()
{
    return {
        {"/args", {args, length}},
        {"/args", {nullptr, nullptr, args}}, // too late
        {"/slow", {slow}},
        {"/asks", {asks}},
        {"/signals", {signals}},
        {"/large", {[](const http_request &) { return text(std::string(kLargeAnswer, 'x')); }}},
        {"/null", {[](const http_request &) { return T_RESPONSE(); }}},
        {"/throws", {[](const http_request &) -> T_RESPONSE { throw std::runtime_error("no"); }}},
        {"/throws_int", {[](const http_request &) -> T_RESPONSE { throw 1; }}},
    };
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

struct T_CASE {
    const char *name;
    std::string request;
    const char *begin; // of the answer, behind "HTTP/1.1 "
    const char *part;  // somewhere in it
};

class HttpRule : public HttpServer, public testing::WithParamInterface<T_CASE> {};

TEST_P(HttpRule, IsKeptAndTheServerServesOn)
{
    const std::string answer = ask(GetParam().request);
    EXPECT_TRUE(answer.starts_with(std::string("HTTP/1.1 ") + GetParam().begin)) << answer;
    EXPECT_NE(answer.find(GetParam().part), std::string::npos) << answer;
    EXPECT_NE(ask("GET /args?a=on HTTP/1.1\r\n\r\n").find("[on][]"), std::string::npos);
}

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

INSTANTIATE_TEST_SUITE_P(
    Requests, HttpRule,
    testing::Values(
        T_CASE{"NoHost", get("/args?a=1&b=x%20y"), "200", "\r\n\r\n[1][x y]"},
        T_CASE{"Type", get("/args"), "200", "Content-Type: application/json\r\n"},
        T_CASE{"FirstOfTwo", get("/args?a=1&a=2"), "200", "[1][]"},
        T_CASE{"NulEnds", get("/args?a=x%00y&b=2"), "200", "[x][2]"},
        T_CASE{"PlusIsBlank", get("/args?a=x+y%2B"), "200", "[x y+][]"},
        T_CASE{"NoValue", get("/args?a&b"), "200", "[][]"}, T_CASE{"CaseOfNames", get("/args?A=1"), "200", "[][]"},
        T_CASE{"BadEscape", get("/args?a=%zz%4"), "200", "[%zz%4][]"},
        T_CASE{"UnknownPath", get("/argsx"), "404", "{ \"error\": \"unknown path\" }"},
        T_CASE{"OtherSchemeOfTarget", get("http://elsewhere/args"), "404", "error"},
        T_CASE{"WrongMethod", "POST /args HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", "405", "Allow: GET, PUT\r\n"},
        T_CASE{"Head", "HEAD /args HTTP/1.1\r\n\r\n", "405", "Allow: GET, PUT\r\n"},
        T_CASE{"ForeignMethod", "BREW /slow HTTP/1.1\r\n\r\n", "405", "Allow: GET\r\n"},
        T_CASE{"Localhost", get("/args", "Host: LocalHost:10191\r\n"), "200", "[]"},
        T_CASE{"Numeric", get("/args", "host: 127.0.0.1\r\n"), "200", "[]"},
        T_CASE{"Version6", get("/args", "Host: [::1]:80\r\n"), "200", "[]"},
        T_CASE{"ForeignHost", get("/args", "Host: example.com\r\n"), "403", "{ \"error\": \"host refused\" }"},
        T_CASE{"LongerHost", get("/args", "Host: localhost.example.com\r\n"), "403", "error"},
        T_CASE{"HostBehindUser", get("/args", "Host: localhost:80@example.com\r\n"), "403", "error"},
        T_CASE{"HostWithoutPort", get("/args", "Host: localhost:\r\n"), "403", "error"},
        T_CASE{"SecondHost", get("/args", "Host: localhost\r\nHost: example.com\r\n"), "403", "error"},
        T_CASE{"ForeignHostUnknownPath", get("/x", "Host: example.com\r\n"), "403", "error"},
        T_CASE{"Body", put("Content-Length: 65536\r\n", std::string(65536, 'x')), "200", "length 65536"},
        T_CASE{"BodyTooLarge", put("Content-Length: 65537\r\n", std::string(65537, 'x')), "413", "body too large\" }"},
        T_CASE{"BodyPromisedTooLarge", put("Content-Length: 4000000000\r\n", ""), "413", "error"},
        T_CASE{"BodyBeyondNumbers", put("Content-Length: 99999999999999999999\r\n", ""), "413", ""},
        T_CASE{"LengthNegative", put("Content-Length: -1\r\n", ""), "400", ""},
        T_CASE{"MoreThanPromised", put("Content-Length: 2\r\n", "{}{}{}\r\n\r\n"), "200", "length 2"},
        T_CASE{"Chunks", put(kChunked, chunks(16)), "200", "length 65536"},
        T_CASE{"ChunksTooLarge", put(kChunked, chunks(17)), "413", "{ \"error\": \"body too large\" }"},
        T_CASE{"ChunksFarTooLarge", put(kChunked, chunks(5000)), "413", "error"},
        T_CASE{"ChunksAndLength", put(kChunked + "Content-Length: 3\r\n", chunks(17)), "413", "error"},
        T_CASE{"BadChunk", put(kChunked, "zz\r\nxx"), "400", ""},
        T_CASE{"LongLine", get("/" + std::string(20000, 'x')), "414", ""},
        T_CASE{"LongHeaders", get("/args", "X: " + std::string(20000, 'x') + "\r\n"), "431", ""},
        T_CASE{"Garbage", "\x16\x03\x01\x02 \r\n\r\n", "", ""},
        T_CASE{"Throws", get("/throws"), "500", "{ \"error\": \"internal error\" }"},
        T_CASE{"ThrowsNumber", get("/throws_int"), "500", "error"}, T_CASE{"NoResponse", get("/null"), "500", "error"},
        T_CASE{"SignalsAreTheMainThreads", get("/signals"), "200", "blocked"}),
    [](const auto &one) { return std::string(one.param.name); });

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
        const uint64_t lasted_ms = duration_ms([&] {
            while (client.say("x")) // never silent for long
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
        });
        EXPECT_GE(lasted_ms, kPhaseMs * 3 / 4) << beginning;
        EXPECT_LT(lasted_ms, kPhaseMs * 4) << beginning;
    }
    const TRawClient idle(m_server->port());
    EXPECT_LT(duration_ms([&] { EXPECT_EQ(idle.hear_all(), ""); }), kPhaseMs * 4);

    const TRawClient lazy(m_server->port());
    (void)lazy.say(get("/large"));
    const size_t first = lazy.hear([](const std::string &heard) { return !heard.empty(); }).size();
    std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs * 2));
    EXPECT_LT(first + lazy.hear_all().size(), kLargeAnswer);
}

TEST_F(HttpServer, LetsAHandlerTakeItsTime)
{
    EXPECT_TRUE(ask(get("/slow")).ends_with("slow"));
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

        const size_t descriptors = entries("/proc/self/fd");
        std::vector<std::unique_ptr<TRawClient>> clients;
        for (int i = 0; i < 10; ++i) {
            clients.push_back(std::make_unique<TRawClient>(m_server->port()));
            (void)clients.back()->say("GET /ar"); // a request that does not end
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs / 3));
        EXPECT_EQ(entries("/proc/self/fd"), descriptors + clients.size() + 4);
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos); // once the first were cut off
    }
}

TEST_F(HttpServer, ListensOnOneAddressOnlyAndAPortIsTakenOnce)
{
    THttpServer second(routes(), {});
    EXPECT_EQ(second.start(m_server->port(), 2), EADDRINUSE);
    second.stop();

    const TFd other(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(m_server->port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    EXPECT_NE(connect(other.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
}

TEST_F(HttpServer, StopsAtOnceButForRunningHandlers)
{
    m_server->stop();
    start({}); // with the usual patience
    const TRawClient idle(m_server->port()), slow_client(m_server->port()), lazy(m_server->port());
    (void)slow_client.say("GET /ar");
    (void)lazy.say(get("/large"));
    (void)ask(get("/args")); // by now the others are known
    EXPECT_LT(duration_ms([&] { m_server->stop(); }), 1000U);
    EXPECT_EQ(idle.hear_all(), "");

    const auto stop_in = [this](const std::string &target) {
        start({});
        const TRawClient client(m_server->port());
        (void)client.say(get(target));
        std::this_thread::sleep_for(std::chrono::milliseconds(kPhaseMs / 3));
        return duration_ms([this] { m_server->stop(); });
    };
    EXPECT_GE(stop_in("/slow"), kPhaseMs);
    const TListener hanging;
    EXPECT_LT(stop_in("/asks?a=" + std::to_string(hanging.port())), 1000U);
}

TEST_F(HttpServer, LeavesNothingBehind)
{
    m_server->stop();
    const size_t threads = entries("/proc/self/task");
    const size_t descriptors = entries("/proc/self/fd");
    for (int i = 0; i < 20; ++i) {
        start({});
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos);
        m_server->stop();
    }
    EXPECT_EQ(entries("/proc/self/task"), threads);
    EXPECT_EQ(entries("/proc/self/fd"), descriptors);
}

} // namespace
