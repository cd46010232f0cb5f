#include <gtest/gtest.h>
#include <sstream>
#include <string_view>
#include <sys/socket.h>
#include <vector>

#include "base/fd.h"
#include "platform/stock/http/http_connections.h"

namespace {

constexpr uint64_t kNow = 1'000'000;

/* A connection in the table, with our end and the client's. */
struct TConnected {
    explicit TConnected(THttpConnections *all, uint64_t since_ms) : table(all)
    {
        int ends[2] = {-1, -1};
        (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
        ours = TFd(ends[0]);
        client = TFd(ends[1]);
        bool crowded = false;
        entry = table->add(ours.get(), since_ms, &crowded);
    }
    ~TConnected() { table->remove(entry); }

    std::string_view ended() const // which directions are shut down, from our side
    {
        char byte = 0;
        const bool in = recv(ours.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0;
        const bool out = send(ours.get(), "x", 1, MSG_DONTWAIT | MSG_NOSIGNAL) < 0;
        return in && out ? "both" : in ? "in" : out ? "out" : "open";
    }

    THttpConnections *table;
    TFd ours, client;
    THttpConnection *entry = nullptr;
};

TEST(HttpConnections, OnlyCountTheSlownessOfTheClient)
{
    enum TPhase { kReceiving, kWorking, kSending };
    /* A client waits that has sent something, or received what we sent. */
    for (const auto &[name, phase, client_waits, lasted_ms, crowded, ended, next_ms] :
         {std::tuple("nothing comes", kReceiving, false, uint64_t{999}, false, "open", 1U),
          {"nothing came in time", kReceiving, false, 1000, false, "in", 100},
          {"unread for long", kReceiving, true, 5000, false, "open", 1000},
          {"a slow handler", kWorking, false, 5000, false, "open", 1000},
          {"answer not taken", kSending, false, 999, false, "open", 1},
          {"answer not taken in time", kSending, false, 1000, false, "both", 100},
          {"we are slow to send", kSending, true, 5000, false, "open", 1000},
          {"a crowd, early", kReceiving, false, 60, true, "open", 40},
          {"a crowd", kReceiving, false, 100, true, "in", 100},
          {"a crowd, unread", kReceiving, true, 5000, true, "open", 100},
          {"the clock went back", kReceiving, false, static_cast<uint64_t>(-5), false, "open", 1000}}) {
        SCOPED_TRACE(name);
        THttpConnections table({.usual_ms = 1000, .crowded_ms = 100, .crowd = 4});
        const TConnected connection(&table, kNow - lasted_ms);
        if (phase == kWorking)
            connection.entry->work();
        if (phase == kSending)
            connection.entry->send(kNow - lasted_ms);
        if (client_waits != (phase == kSending)) // one of the two has something to read
            (void)send((client_waits ? connection.client : connection.ours).get(), "x", 1, 0);
        EXPECT_EQ(table.cut_overdue(kNow, crowded), next_ms);
        EXPECT_EQ(connection.entry->since_ms == kNow, client_waits); // for us: its time restarts
        EXPECT_EQ(connection.ended(), ended);
    }
}

TEST(HttpHead, DetectsForeignHostsAndPagesAndAmbiguousEnds)
{
    /* The faults and the length, of these heads. */
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"",
         {"", "Accept: */*\nHostile: example.com\nX-Origin: null", "host: LocalHost:10191",
          "Host: 127.0.0.1\nHost: [::1]:8", "Origin: http://localhost:8080\nSec-Fetch-Site: same-site",
          "ORIGIN: HTTPS://[::1]\nSec-Fetch-Site: none", "Transfer-Encoding: chunked", "Content-Length: x"}},
        {"host ",
         {"Host: localhost.example.com", "Host: localhost:80@example.com",
          "Host: localhost:", "Host: ", "Host: x\nHost: localhost"}},
        {"page ",
         {"Origin: http://example.com", "Origin: http://localhost.example.com", "Origin: localhost", "Origin: null",
          "Origin: ", "Origin: https://example.com\nOrigin: http://localhost", "sec-fetch-site: Cross-Site"}},
        {"host page ", {"Host: example.com\nSec-Fetch-Site: cross-site"}},
        {"12", {"Content-Length: 12"}},
        {"18446744073709551615", {"Content-Length: 99999999999999999999"}},
        {"end 3", {"Content-Length: 3\ncontent-length: 3", "Transfer-Encoding: chunked\nContent-Length: 3"}},
        {"end ", {"Transfer-Encoding: chunked\nTransfer-Encoding: identity"}}};
    for (const auto &[verdict, heads] : cases) {
        for (const std::string &text : heads) {
            THttpHead head;
            std::istringstream lines(text);
            for (std::string line; std::getline(lines, line);)
                head.add(line.substr(0, line.find(": ")), line.substr(line.find(": ") + 2));
            EXPECT_EQ(std::string(head.host_is_local ? "" : "host ") + (head.page_is_local ? "" : "page ") +
                          (head.is_clear() ? "" : "end ") + (head.length > 0 ? std::to_string(head.length) : ""),
                      verdict)
                << text;
        }
    }
}

} // namespace
