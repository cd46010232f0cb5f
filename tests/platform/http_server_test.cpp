#include <atomic>
#include <ctime>
#include <filesystem>
#include <latch>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <unistd.h>

#include "base/text.h"
#include "platform/descriptor_limit.h"
#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/http/http_server.h"

namespace {

using httpserver::http_request;
using TParsedResponse = std::shared_ptr<httpserver::http_response>;

constexpr uint64_t kPhaseMs = 10'000, kCrowdedMs = 500;
constexpr size_t kLargeAnswer = size_t{16} << 20;

TParsedResponse text(const std::string &body)
{
    return std::make_shared<ssci_response>(body, 200, "application/json");
}

std::atomic<uint64_t> g_ahead_ms{0}; // of the real time

size_t descriptors()
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

/* Blocks handlers until the test opens it. */
struct TGate {
    std::counting_semaphore<> arrived{0};
    std::latch closed{1};
    std::atomic<int> passed{0};
};
std::unique_ptr<TGate> g_gate;

std::vector<THttpRoute> routes()
{
    const auto args = [](const http_request &request) {
        return text("[" + request.get_arg("a") + "][" + request.get_arg("b") + "]");
    };
    const auto length = [](const http_request &request) {
        return text("length " + std::to_string(request.get_content().size()));
    };
    const auto gate = [](const http_request &request) {
        g_gate->arrived.release();
        g_gate->closed.wait();
        ++g_gate->passed;
        return text("through with [" + request.get_arg("a") + "]");
    };
    const auto asks = [](const http_request &request) { // queries another service, which is slow
        (void)ssci_GET_request("localhost", std::stoi(request.get_arg("a")), "/", {}, nullptr, 20);
        return text("asked");
    };
    return {{"/args", {args, length}},
            {"/args", {nullptr, nullptr, args}}, // too late
            {"/gate", {gate}},
            {"/waits", {gate}, true},
            {"/asks", {asks}},
            {"/large", {[](const http_request &) { return text(std::string(kLargeAnswer, 'x')); }}},
            {"/null", {[](const http_request &) { return TParsedResponse(); }}},
            {"/throws", {[](const http_request &) -> TParsedResponse { throw std::runtime_error("no"); }}},
            {"/throws_int", {[](const http_request &) -> TParsedResponse { throw 1; }}}};
}

std::string get(const std::string &target, const std::string &headers = "")
{
    return "GET " + target + " HTTP/1.1\r\n" + headers + "\r\n";
}

class HttpServer : public testing::Test {
protected:
    void start(THttpLimits limits, unsigned workers = 2)
    {
        limits.clock_ms = [] { return current_time_stamp_mono_r() + g_ahead_ms; };
        m_server = std::make_unique<THttpServer>(routes(), limits);
        ASSERT_EQ(m_server->start(0, workers), 0);
    }
    void SetUp() override
    {
        g_gate = std::make_unique<TGate>();
        start({});
    }
    std::string ask(std::string_view request) const { return TRawSocket(m_server->port(), request).hear_answer(); }
    void pass(uint64_t ms) const
    {
        g_ahead_ms += ms;
        (void)m_server->cut_overdue();
    }
    /* A phase passes, and again where the server still has to read what was sent. */
    bool ends(const TRawSocket &client, std::string_view never_silent) const
    {
        for (int i = 0; i < 2000; ++i) {
            pass(kPhaseMs);
            if (never_silent.empty() ? client.is_over() : !client.say(never_silent))
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }
    std::unique_ptr<THttpServer> m_server;
};

std::string put(const std::string &headers, const std::string &body)
{
    return "PUT /args HTTP/1.1\r\n" + headers + "\r\n" + body;
}
std::string chunks(size_t size) // one byte, the rest, and the end
{
    return "1\r\nx\r\n" + text_format("%zx\r\n", size - 1) + std::string(size - 1, 'x') + "\r\n0\r\n\r\n";
}
const std::string kChunked = "Transfer-Encoding: chunked\r\n";

TEST_F(HttpServer, EnforcesItsRulesAndContinuesToServe)
{
    testing::internal::CaptureStderr();
    /* The body, or another part of the answer. */
    for (const auto &[request, status, part] :
         {std::tuple(get("/args?a=1&b=x%20y"), "200",
                     "\r\nContent-Type: application/json\r\nContent-Length: 8\r\n\r\n[1][x y]"),
          {get("/args?a=x%00y&b=1&b=2"), "200", "[x][1]"},
          {get("/args?a=x+y%2B&b=%zz%4"), "200", "[x y+][%zz%4]"},
          {get("/args?a&b&A=1"), "200", "[][]"},
          {get("/argsx"), "404", "{ \"error\": \"unknown path\" }"},
          {get("http://elsewhere/args"), "404", "{ \"error\": \"unknown path\" }"},
          {"POST /args HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", "405", "Allow: GET, PUT\r\n"},
          {"BREW /gate HTTP/1.1\r\n\r\n", "405", "{ \"error\": \"method not allowed\" }"},
          {get("/args", "Host: example.com\r\n"), "403", "{ \"error\": \"host refused\" }"},
          {get("/args", "Origin: http://example.com\r\n"), "403", "{ \"error\": \"page refused\" }"},
          {put("Content-Length: 65536\r\n", std::string(65536, 'x')), "200", "length 65536"},
          {put("Content-Length: 65537\r\n", ""), "413", "{ \"error\": \"body too large\" }"}, // without waiting
          {put("Content-Length: 2\r\n", "{}{}{}\r\n\r\n"), "200", "length 2"},
          {put(kChunked, chunks(65536)), "200", "length 65536"},
          {put(kChunked, chunks(65537)), "413", "{ \"error\": \"body too large\" }"},
          {put(kChunked + "Content-Length: 3\r\n", chunks(3)), "400", "{ \"error\": \"end of body not clear\" }"},
          {put("Content-Length: 3\r\nContent-Length: 3\r\n", "abc"), "400", "Connection: close\r\n"},
          {put(kChunked, "zz\r\nxx"), "400", ""},
          {get("/" + std::string(20000, 'x')), "414", ""},
          {get("/args", "X: " + std::string(20000, 'x') + "\r\n"), "431", ""},
          {"\x16\x03\x01\x02 \r\n\r\n", "", ""},
          {get("/throws"), "500", "{ \"error\": \"internal error\" }"},
          {get("/throws_int"), "500", "{ \"error\": \"internal error\" }"},
          {get("/null"), "500", "{ \"error\": \"internal error\" }"}}) {
        SCOPED_TRACE(request.substr(0, 100));
        const std::string answer = ask(request);
        EXPECT_TRUE(answer.starts_with(std::string("HTTP/1.1 ") + status)) << answer;
        EXPECT_NE(answer.find(part), std::string::npos) << answer;
        EXPECT_TRUE(*part != '{' || answer.ends_with(std::string("\r\n\r\n") + part)) << answer;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "/throws: the handler failed: no\n/throws_int: the handler failed\n");
    EXPECT_FALSE(TRawSocket(m_server->port(), "", INADDR_LOOPBACK + 1).say("x")); // it is not there for other machines
}

TEST_F(HttpServer, KeepsTheConnectionForTheNextRequest)
{
    const TRawSocket client(m_server->port());
    for (const char *target : {"/args", "/nowhere", "/args", "/args"}) { // each has a phase of its own
        ASSERT_TRUE(client.say(get(target)));
        EXPECT_EQ(client.hear_answer().substr(9, 3), target[1] == 'n' ? "404" : "200");
        pass(kPhaseMs / 2);
    }
    ASSERT_TRUE(client.say(put("Content-Length: 3\r\n", "abc") + put("Content-Length: 1\r\n", "a")));
    const std::string both = client.hear([](const std::string &heard) { return heard.ends_with("length 1"); });
    EXPECT_TRUE(both.find("length 3") != std::string::npos && both.ends_with("length 1")) << both;
    EXPECT_TRUE(ends(client, ""));
}

TEST_F(HttpServer, CutsOffClientsThatTakeTooLong)
{
    const std::string beginnings[] = {"", get("/args").substr(0, 9), put("Content-Length: 5000\r\n", ""),
                                      put(kChunked, "1000\r\n")};
    for (const std::string &beginning : beginnings) {
        const TRawSocket idle(m_server->port()), client(m_server->port());
        ASSERT_TRUE(client.say(beginning) && idle.say(beginning));
        EXPECT_TRUE(ends(client, "x") && ends(idle, "")) << beginning;
    }
    const TRawSocket lazy(m_server->port(), get("/large"));
    const size_t first = lazy.hear([](const std::string &heard) { return !heard.empty(); }).size();
    for (int i = 0; i < 20; ++i) { // once the buffers of the connection are full
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        pass(kPhaseMs);
    }
    EXPECT_LT(first + lazy.hear().size(), kLargeAnswer);
}

TEST_F(HttpServer, BoundsTheConnectionsAndMakesRoom)
{
    std::vector<TRawSocket> clients;
    for (int i = 1; i <= 96; ++i) { // three quarters of what it has room for
        clients.emplace_back(m_server->port(), get("/args"));
        (void)clients.back().hear_answer();
        EXPECT_LE(m_server->cut_overdue(), i < 96 ? kPhaseMs : kCrowdedMs);
    }
    for (const bool by_descriptors : {false, true}) {
        m_server->stop();
        /* In the second case, four more than the server leaves to the rest of the process. */
        const rlim_t usual = limit_descriptors(by_descriptors ? 64 + 4 : 1024);
        start({.crowded_ms = 20, .connections = by_descriptors ? 128U : 1U}, 1); // and the usual patience
        limit_descriptors(usual);

        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // now nothing is watched
        clients.clear();
        const size_t before_all = descriptors();
        for (int i = 0; i < 10; ++i)
            clients.emplace_back(m_server->port(), "GET /ar"); // an incomplete request
        const TAtMost limit(4000);
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos); // after the first were cut off
        EXPECT_LE(descriptors(), before_all + clients.size() + 4);
    }
}

TEST_F(HttpServer, AHandlerThatWaitsDelaysNoOtherRequest)
{
    start({}, 1);
    std::vector<TRawSocket> clients;
    for (int i = 0; i < 36; ++i) {
        clients.emplace_back(m_server->port(), get("/waits?a=" + std::to_string(i)));
        if (i == 0)
            g_gate->arrived.acquire(); // 32 others are queued behind it
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos);
    }
    (void)ask(get("/args")); // all have been read
    pass(2 * kPhaseMs);      // which is no slowness of theirs
    g_gate->closed.count_down();
    int refused = 0;
    for (const TRawSocket &client : clients) {
        const std::string number = std::to_string(&client - clients.data());
        const std::string answer = client.hear_answer();
        if (answer.starts_with("HTTP/1.1 503") && answer.ends_with("{ \"error\": \"too many wait\" }")) {
            ++refused;
            continue;
        }
        EXPECT_TRUE(answer.ends_with("\r\n\r\nthrough with [" + number + "]")) << answer;
        (void)client.say(get("/args?a=again")); // the connection is still served
        EXPECT_TRUE(client.hear_answer().ends_with("[again][]")) << number;
    }
    EXPECT_EQ(refused, 3);
    EXPECT_EQ(g_gate->passed, 33);
}

TEST_F(HttpServer, WithoutDescriptorsItRestsAndThenLetsTheNextOneIn)
{
    for (const bool kept : {false, true}) {
        SCOPED_TRACE(kept);
        m_server->stop();
        start({}, 1);
        const auto other = kept ? std::make_unique<TRawSocket>(m_server->port(), get("/args")) : nullptr;
        if (kept)
            (void)other->hear_answer();
        const int last = dup(STDERR_FILENO);
        testing::internal::CaptureStderr();
        const rlim_t usual = limit_descriptors(static_cast<rlim_t>(last) + 1);
        (void)close(last);
        const TRawSocket client(m_server->port(), get("/args?a=in")); // uses the last descriptor
        const clock_t began = clock();
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        EXPECT_LT(clock() - began, CLOCKS_PER_SEC / 100); // without a rest it is more, on a busy machine too
        EXPECT_LE(m_server->cut_overdue(), kCrowdedMs);
        limit_descriptors(usual);
        const TAtMost limit(1500);
        if (kept) { // a client that keeps sending requests makes room as well
            (void)other->say(get("/args"));
            EXPECT_NE(other->hear_answer().find("Connection: close\r\n"), std::string::npos);
        }
        EXPECT_TRUE(client.hear_answer().ends_with("[in][]"));
        EXPECT_GT(m_server->cut_overdue(), kCrowdedMs) << "there is room again";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "new connections are not accepted: Too many open files\n");
    }
}

TEST_F(HttpServer, StopsAtOnceExceptForRunningHandlers)
{
    const TRawSocket idle(m_server->port()), slow_client(m_server->port(), "GET /ar"),
        lazy(m_server->port(), get("/large")), waiting(m_server->port(), get("/waits"));
    g_gate->arrived.acquire();
    const TRawSocket dropped(m_server->port(), get("/waits"));
    /* Each of the last two occupies a request thread, so it only starts when no other can be affected. */
    const TListener hanging;
    const TRawSocket asking(m_server->port(), get("/asks?a=" + std::to_string(hanging.port())));
    const TFd asked = hanging.accept_one();
    const TRawSocket running(m_server->port(), get("/gate"));
    g_gate->arrived.acquire();
    std::thread later([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        g_gate->closed.count_down();
    });
    const TAtMost limit(2000);
    m_server->stop();
    EXPECT_EQ(g_gate->passed, 2); // the call that had not begun is dropped
    later.join();
    EXPECT_EQ(idle.hear() + dropped.hear(), "");
}

} // namespace
