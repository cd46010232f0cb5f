#include <gtest/gtest.h>
#include <string_view>
#include <sys/socket.h>
#include <utility>

#include "base/fd.h"
#include "platform/stock/http/http_connections.h"

namespace {

constexpr uint64_t kNow = 1'000'000;

/* A connection in the table, with our end and the client's. */
class TConnected {
public:
    explicit TConnected(THttpConnections *table, uint64_t since_ms = kNow) : m_table(table)
    {
        int ends[2] = {-1, -1};
        (void)socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
        m_ours = TFd(ends[0]);
        m_client = TFd(ends[1]);
        m_entry = table->add(m_ours.get(), since_ms, &m_crowded);
    }
    ~TConnected() { m_table->remove(m_entry); }
    TConnected(const TConnected &) = delete;
    TConnected &operator=(const TConnected &) = delete;

    THttpConnection *operator->() const { return m_entry; }
    bool made_a_crowd() const { return m_crowded; }
    void client_sends() const { (void)send(m_client.get(), "x", 1, 0); }
    void we_send() const { (void)send(m_ours.get(), "x", 1, 0); }

    std::string_view ended() const // which directions are shut down, from our side
    {
        char byte = 0;
        const bool in = recv(m_ours.get(), &byte, 1, MSG_DONTWAIT | MSG_PEEK) == 0;
        const bool out = send(m_ours.get(), "x", 1, MSG_DONTWAIT | MSG_NOSIGNAL) < 0;
        return in && out ? "both" : in ? "in" : out ? "out" : "open";
    }

private:
    THttpConnections *m_table;
    TFd m_ours, m_client;
    bool m_crowded = false;
    THttpConnection *m_entry = nullptr;
};

TEST(HttpConnections, OnlyCountTheSlownessOfTheClient)
{
    enum TPhase { kReceiving, kWorking, kSending };
    const struct {
        const char *name;
        TPhase phase;
        bool client_waits; // it has sent something, or received what we sent
        uint64_t lasted_ms;
        bool crowded;
        const char *ended;
        uint64_t next_ms;
    } cases[] = {{"nothing comes", kReceiving, false, 999, false, "open", 1},
                 {"nothing came in time", kReceiving, false, 1000, false, "in", 100},
                 {"unread for long", kReceiving, true, 5000, false, "open", 1000},
                 {"a slow handler", kWorking, false, 5000, false, "open", 1000},
                 {"answer not taken", kSending, false, 999, false, "open", 1},
                 {"answer not taken in time", kSending, false, 1000, false, "both", 100},
                 {"we are slow to send", kSending, true, 5000, false, "open", 1000},
                 {"a crowd, early", kReceiving, false, 60, true, "open", 40},
                 {"a crowd", kReceiving, false, 100, true, "in", 100},
                 {"a crowd, unread", kReceiving, true, 5000, true, "open", 100},
                 {"the clock went back", kReceiving, false, static_cast<uint64_t>(-5), false, "open", 1000}};
    for (const auto &one : cases) {
        SCOPED_TRACE(one.name);
        THttpConnections table({.usual_ms = 1000, .crowded_ms = 100, .crowd = 4});
        const TConnected connection(&table, kNow - one.lasted_ms);
        if (one.phase == kWorking)
            connection->work();
        if (one.phase == kSending)
            connection->send(kNow - one.lasted_ms);
        if (one.phase == kSending && !one.client_waits)
            connection.we_send();
        if (one.phase == kReceiving && one.client_waits)
            connection.client_sends();
        EXPECT_EQ(table.cut_overdue(kNow, one.crowded), one.next_ms);
        EXPECT_EQ(connection->since_ms == kNow, one.client_waits); // for us: its time restarts
        EXPECT_EQ(connection.ended(), one.ended);
    }
}

TEST(HttpConnections, AreCutOffSoonerInACrowd)
{
    THttpConnections table({.usual_ms = 1000, .crowded_ms = 100, .crowd = 3});
    const TConnected first(&table, kNow - 500), second(&table, kNow - 90);
    EXPECT_EQ(table.cut_overdue(kNow, false), 500U);
    {
        const TConnected third(&table, kNow), fourth(&table, kNow);
        EXPECT_TRUE(third.made_a_crowd());
        EXPECT_FALSE(fourth.made_a_crowd() || second.made_a_crowd());
        EXPECT_EQ(table.cut_overdue(kNow, false), 10U);
        EXPECT_EQ(first.ended(), "in");
    }
    EXPECT_EQ(table.cut_overdue(kNow + 100, false), 400U); // the usual limit again
    EXPECT_EQ(second.ended(), "open");
}

TEST(HttpHead, DetectsForeignHostsAndPagesAndAmbiguousEnds)
{
    using THeaders = std::initializer_list<std::pair<const char *, const char *>>;
    const struct {
        THeaders headers;
        const char *verdict; // the fault
        uint64_t length = 0;
    } cases[] = {
        {{}, ""},
        {{{"Accept", "*/*"}, {"Hostile", "example.com"}, {"X-Origin", "null"}}, ""},
        {{{"host", "LocalHost:10191"}}, ""},
        {{{"Host", "127.0.0.1"}, {"Host", "[::1]:80"}}, ""},
        {{{"Host", "localhost.example.com"}}, "host"},
        {{{"Host", "localhost:80@example.com"}}, "host"},
        {{{"Host", "localhost:"}}, "host"},
        {{{"Host", ""}}, "host"},
        {{{"Host", "x"}, {"Host", "localhost"}}, "host"},
        {{{"Origin", "http://localhost:8080"}, {"Sec-Fetch-Site", "same-site"}}, ""},
        {{{"ORIGIN", "HTTPS://[::1]"}, {"Sec-Fetch-Site", "none"}}, ""},
        {{{"Origin", "http://example.com"}}, "page"},
        {{{"Origin", "http://localhost.example.com"}}, "page"},
        {{{"Origin", "localhost"}}, "page"},
        {{{"Origin", "null"}}, "page"},
        {{{"Origin", ""}}, "page"},
        {{{"Origin", "https://example.com"}, {"Origin", "http://localhost"}}, "page"},
        {{{"sec-fetch-site", "Cross-Site"}}, "page"},
        {{{"Host", "example.com"}, {"Sec-Fetch-Site", "cross-site"}}, "host page"},
        {{{"Content-Length", "12"}}, "", 12},
        {{{"Content-Length", "99999999999999999999"}}, "", UINT64_MAX},
        {{{"Content-Length", "3"}, {"content-length", "3"}}, "end", 3},
        {{{"Transfer-Encoding", "chunked"}}, ""},
        {{{"Transfer-Encoding", "chunked"}, {"Content-Length", "3"}}, "end", 3},
        {{{"Transfer-Encoding", "chunked"}, {"Transfer-Encoding", "identity"}}, "end"},
    };
    for (const auto &one : cases) {
        THttpHead head;
        std::string all, verdict;
        for (const auto &[name, value] : one.headers) {
            head.add(name, value);
            all += std::string(name) + ": " + value + "; ";
        }
        for (const auto &[fault, text] : {std::pair(!head.host_is_local, "host"),
                                          std::pair(!head.page_is_local, "page"), std::pair(!head.is_clear(), "end")})
            if (fault)
                verdict += (verdict.empty() ? "" : " ") + std::string(text);
        EXPECT_EQ(verdict, one.verdict) << all;
        EXPECT_EQ(head.length, one.length) << all;
    }
}

} // namespace
