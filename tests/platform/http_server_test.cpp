#include <atomic>
#include <ctime>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <sys/resource.h>
#include <unistd.h>

#include "platform/raw_socket.h"
#include "platform/ssci.h"
#include "platform/stock/http/http_server.h"

namespace {

using httpserver::http_request;
using TParsedResponse = std::shared_ptr<httpserver::http_response>;

constexpr uint64_t kPhaseMs = THttpLimits().phase_ms;
constexpr size_t kLargeAnswer = size_t{16} << 20;

TParsedResponse text(const std::string &body)
{
    return std::make_shared<ssci_response>(body, 200, "application/json");
}

std::atomic<uint64_t> g_now_ms{1'000'000}; // goes on where a test has it go on

size_t descriptors()
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

TParsedResponse args(const http_request &request)
{
    return text("[" + request.get_arg("a") + "][" + request.get_arg("b") + "]");
}
TParsedResponse length(const http_request &request)
{
    return text("length " + std::to_string(request.get_content().size()));
}

/* Blocks handlers until the test opens it. */
class TGate {
public:
    void pass()
    {
        ++m_arrived;
        m_arrived.notify_all();
        m_open.wait(false);
        ++m_passed;
    }
    void wait_for(int count)
    {
        for (int now = m_arrived; now < count; now = m_arrived)
            m_arrived.wait(now);
    }
    void open()
    {
        m_open = true;
        m_open.notify_all();
    }
    int passed() const { return m_passed; }

private:
    std::atomic<bool> m_open{false};
    std::atomic<int> m_arrived{0}, m_passed{0};
};
std::unique_ptr<TGate> g_gate;
TParsedResponse gate(const http_request &request)
{
    g_gate->pass();
    return text("through with [" + request.get_arg("a") + "]");
}
TParsedResponse asks(const http_request &request) // queries another service, which is slow
{
    (void)ssci_GET_request("localhost", std::stoi(request.get_arg("a")), "/", {}, nullptr, 20);
    return text("asked");
}

std::vector<THttpRoute> routes()
{
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
        if (!m_real_clock)
            limits.clock_ms = [] { return g_now_ms.load(); };
        m_server = std::make_unique<THttpServer>(routes(), limits);
        ASSERT_EQ(m_server->start(0, workers), 0);
    }
    void SetUp() override
    {
        g_gate = std::make_unique<TGate>();
        start({});
    }
    void TearDown() override
    {
        g_gate->open();
        m_server.reset();
    }
    std::string ask(std::string_view request) const
    {
        const TRawClient client(m_server->port());
        (void)client.say(request); // the server may have closed the connection before
        return client.hear_answer();
    }
    void pass(uint64_t ms) const
    {
        g_now_ms += ms;
        (void)m_server->cut_overdue();
    }
    /* A phase passes, and again where the server still has to read what was sent. */
    bool ends(const TRawClient &client, std::string_view never_silent) const
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
    bool m_real_clock = false;
};

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

TEST_F(HttpServer, EnforcesItsRulesAndContinuesToServe)
{
    const struct {
        std::string request;
        const char *begin; // of the answer, after "HTTP/1.1 "
        const char *part;  // contained in it
    } cases[] = {
        {get("/args?a=1&b=x%20y"), "200", "\r\n\r\n[1][x y]"},
        {get("/args"), "200", "Content-Type: application/json\r\n"},
        {get("/args?a=1&a=2"), "200", "[1][]"},
        {get("/args?a=x%00y&b=2"), "200", "[x][2]"},
        {get("/args?a=x+y%2B"), "200", "[x y+][]"},
        {get("/args?a&b&A=1"), "200", "[][]"},
        {get("/args?a=%zz%4"), "200", "[%zz%4][]"},
        {get("/argsx"), "404", "{ \"error\": \"unknown path\" }"},
        {get("http://elsewhere/args"), "404", "error"},
        {"POST /args HTTP/1.1\r\nContent-Length: 2\r\n\r\n{}", "405", "Allow: GET, PUT\r\n"},
        {"BREW /gate HTTP/1.1\r\n\r\n", "405", "Allow: GET\r\n"},
        {get("/args", "Host: example.com\r\n"), "403", "{ \"error\": \"host refused\" }"},
        {get("/args", "Origin: http://example.com\r\n"), "403", "{ \"error\": \"page refused\" }"},
        {get("/x", "Sec-Fetch-Site: cross-site\r\n"), "403", "error"},
        {put("Content-Length: 65536\r\n", std::string(65536, 'x')), "200", "length 65536"},
        {put("Content-Length: 65537\r\n", std::string(65537, 'x')), "413", "body too large\" }"},
        {put("Content-Length: 99999999999999999999\r\n", ""), "413", ""},
        {put("Content-Length: -1\r\n", ""), "400", ""},
        {put("Content-Length: 2\r\n", "{}{}{}\r\n\r\n"), "200", "length 2"},
        {put(kChunked, chunks(16)), "200", "length 65536"},
        {put(kChunked, chunks(17)), "413", "{ \"error\": \"body too large\" }"},
        {put(kChunked + "Content-Length: 3\r\n", chunks(1)), "400", "{ \"error\": \"end of body not clear\" }"},
        {put("Content-Length: 3\r\nContent-Length: 3\r\n", "abc"), "400", "Connection: close\r\n"},
        {put(kChunked, "zz\r\nxx"), "400", ""},
        {get("/" + std::string(20000, 'x')), "414", ""},
        {get("/args", "X: " + std::string(20000, 'x') + "\r\n"), "431", ""},
        {"\x16\x03\x01\x02 \r\n\r\n", "", ""},
        {get("/throws"), "500", "{ \"error\": \"internal error\" }"},
        {get("/throws_int"), "500", "error"},
        {get("/null"), "500", "error"}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.request.substr(0, 100));
        const std::string answer = ask(one.request);
        EXPECT_TRUE(answer.starts_with(std::string("HTTP/1.1 ") + one.begin)) << answer;
        EXPECT_NE(answer.find(one.part), std::string::npos) << answer;
    }
}

TEST_F(HttpServer, KeepsTheConnectionForTheNextRequest)
{
    const TRawClient client(m_server->port());
    for (const char *target : {"/args", "/nowhere", "/args", "/args"}) { // each has a phase of its own
        ASSERT_TRUE(client.say(get(target)));
        EXPECT_EQ(client.hear_answer().substr(9, 3), target[1] == 'n' ? "404" : "200");
        pass(kPhaseMs - 1);
    }
    ASSERT_TRUE(client.say(put("Content-Length: 3\r\n", "abc") + put("Content-Length: 1\r\n", "a")));
    const std::string both = client.hear([](const std::string &heard) { return heard.ends_with("length 1"); });
    EXPECT_NE(both.find("length 3"), std::string::npos) << both;
    EXPECT_TRUE(ends(client, ""));
}

TEST_F(HttpServer, CutsOffClientsThatTakeTooLong)
{
    const std::string beginnings[] = {"", get("/args").substr(0, 9), put("Content-Length: 5000\r\n", ""),
                                      put(kChunked, "1000\r\n")};
    for (const std::string &beginning : beginnings) {
        const TRawClient idle(m_server->port()), client(m_server->port());
        ASSERT_TRUE(client.say(beginning) && idle.say(beginning));
        EXPECT_TRUE(ends(client, "x") && ends(idle, "")) << beginning;
    }
    const TRawClient lazy(m_server->port());
    (void)lazy.say(get("/large"));
    const size_t first = lazy.hear([](const std::string &heard) { return !heard.empty(); }).size();
    for (int i = 0; i < 20; ++i) { // once the buffers of the connection are full
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        pass(kPhaseMs);
    }
    EXPECT_LT(first + lazy.hear_all().size(), kLargeAnswer);
}

TEST_F(HttpServer, BoundsTheConnectionsAndMakesRoom)
{
    m_real_clock = true;
    rlimit before = {};
    (void)getrlimit(RLIMIT_NOFILE, &before);
    const rlimit low = {64 + 4, before.rlim_max}; // four above those of the rest of the process
    for (const bool by_descriptors : {false, true}) {
        m_server->stop();
        (void)setrlimit(RLIMIT_NOFILE, by_descriptors ? &low : &before);
        start({.crowded_ms = 20, .connections = by_descriptors ? 128U : 4U}); // and the usual patience
        (void)setrlimit(RLIMIT_NOFILE, &before);

        const size_t before_all = descriptors();
        std::vector<std::unique_ptr<TRawClient>> clients;
        for (int i = 0; i < 10; ++i) {
            clients.push_back(std::make_unique<TRawClient>(m_server->port()));
            (void)clients.back()->say("GET /ar"); // an incomplete request
            EXPECT_LE(descriptors(), before_all + clients.size() + 4);
        }
        const TAtMost limit(4000);
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos); // after the first were cut off
    }
}

TEST_F(HttpServer, AHandlerThatWaitsDelaysNoOtherRequest)
{
    start({.waiting = 2}, 1);
    std::vector<std::unique_ptr<TRawClient>> clients;
    for (int i = 0; i < 6; ++i) {
        clients.push_back(std::make_unique<TRawClient>(m_server->port()));
        (void)clients.back()->say(get("/waits?a=" + std::to_string(i)));
        if (i == 0)
            g_gate->wait_for(1); // the other two are queued behind it
        EXPECT_NE(ask(get("/args?a=on")).find("[on]"), std::string::npos);
    }
    (void)ask(get("/args")); // all have been read
    pass(2 * kPhaseMs);      // which is no slowness of theirs
    g_gate->open();
    int refused = 0;
    for (int i = 0; i < 6; ++i) {
        const TRawClient &client = *clients[static_cast<size_t>(i)];
        const std::string answer = client.hear_answer();
        if (answer.starts_with("HTTP/1.1 503") && answer.ends_with("{ \"error\": \"too many wait\" }")) {
            ++refused;
            continue;
        }
        EXPECT_TRUE(answer.ends_with("\r\n\r\nthrough with [" + std::to_string(i) + "]")) << answer;
        (void)client.say(get("/args?a=again")); // the connection is still served
        EXPECT_TRUE(client.hear_answer().ends_with("[again][]")) << i;
    }
    EXPECT_EQ(refused, 3);
    EXPECT_EQ(g_gate->passed(), 3);
}

TEST_F(HttpServer, WithoutDescriptorsItRestsAndThenLetsTheNextOneIn)
{
    for (const bool kept : {false, true}) {
        SCOPED_TRACE(kept);
        m_server->stop();
        start({}, 1);
        const auto other = kept ? std::make_unique<TRawClient>(m_server->port()) : nullptr;
        if (kept) {
            (void)other->say(get("/args"));
            (void)other->hear_answer();
        }
        rlimit before = {};
        (void)getrlimit(RLIMIT_NOFILE, &before);
        const int last = dup(STDERR_FILENO);
        const rlimit low = {static_cast<rlim_t>(last) + 1, before.rlim_max};
        (void)setrlimit(RLIMIT_NOFILE, &low);
        (void)close(last);
        const TRawClient client(m_server->port()); // uses the last descriptor
        (void)client.say(get("/args?a=in"));
        const clock_t began = clock();
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        EXPECT_LT(clock() - began, CLOCKS_PER_SEC / 100); // without a rest it is more, on a busy machine too
        (void)setrlimit(RLIMIT_NOFILE, &before);
        const TAtMost limit(1500);
        if (kept) { // a client that keeps sending requests makes room as well
            (void)other->say(get("/args"));
            EXPECT_NE(other->hear_answer().find("Connection: close\r\n"), std::string::npos);
        }
        EXPECT_TRUE(client.hear_answer().ends_with("[in][]"));
    }
}

TEST_F(HttpServer, StopsAtOnceExceptForRunningHandlers)
{
    const TRawClient idle(m_server->port()), slow_client(m_server->port()), lazy(m_server->port());
    (void)slow_client.say("GET /ar");
    (void)lazy.say(get("/large"));
    const TRawClient waiting(m_server->port()), dropped(m_server->port());
    (void)waiting.say(get("/waits"));
    g_gate->wait_for(1);
    (void)dropped.say(get("/waits"));
    /* Each of the last two occupies a request thread, so it only starts when no other can be affected. */
    const TListener hanging;
    const TRawClient asking(m_server->port());
    (void)asking.say(get("/asks?a=" + std::to_string(hanging.port())));
    const TFd asked(accept4(hanging.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    const TRawClient running(m_server->port());
    (void)running.say(get("/gate"));
    g_gate->wait_for(2);
    std::thread later([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        g_gate->open();
    });
    {
        const TAtMost limit(2000);
        m_server->stop();
    }
    EXPECT_EQ(g_gate->passed(), 2); // the call that had not begun is dropped
    later.join();
    EXPECT_EQ(idle.hear_all() + dropped.hear_all(), "");
}

} // namespace
