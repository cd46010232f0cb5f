#include "stats/sysstat_net.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/socket.h>

#include "common/text.h"
#include "stats/stat_test.h"

namespace {

constexpr const char *kHeadings = "Inter-|   Receive\n face |bytes    packets\n";

/* A line of /proc/net/dev. */
std::string line_of(const std::string &name, uint64_t rx, uint64_t tx)
{
    return text_format("%6s: %7lu 1 2 3 4 5 6 7 %7lu 9 10 11 12 13 14 15\n", name.c_str(), rx, tx);
}

std::string tx_rx(const char *tx, const char *rx)
{
    return text_format(R"({ "tx": "%s", "rx": "%s" })", tx, rx);
}

class NetStat : public TStatTest {
protected:
    void SetUp() override
    {
        TStatTest::SetUp();
        fake::set_wall_ms(1000000);
        g_p_NetstatManager = new TNetstatManager(std::vector<std::string>{"wlan0", "eth0", "eth0"});
    }
    void TearDown() override
    {
        sysstat_net_uninit();
        TStatTest::TearDown();
    }
    static void round(const std::string &lines, uint64_t ms = 10000)
    {
        write_file("/proc/net/dev", kHeadings + lines);
        fake::advance_ms(ms);
        EXPECT_EQ(sysstat_net_sample(), 0);
    }
    static std::string ask(const char *method, const char *type, const char *name, int expected = 0)
    {
        return stat_ask(sysstat_net_proc, method, type, name, expected);
    }
    /* Intervals of 10 s: 10,000 sent and 20,000 received, then 5,000 and 40,000. */
    static void two_intervals()
    {
        round(line_of("eth0", 100, 7) + line_of("lo", 5, 5));
        round(line_of("eth0", 20100, 10007) + line_of("lo", 6, 6));
        round(line_of("eth0", 60100, 15007) + line_of("lo", 7, 7));
    }
};

TEST_F(NetStat, AnswersBytesOfAnIntervalAndRatesOfSums)
{
    round(line_of("eth0", 100, 7));
    round(line_of("eth0", 20100, 10007));
    EXPECT_EQ(ask("cur_data", "", "eth0"), tx_rx("10000", "20000"));
    EXPECT_EQ(ask("avg", "1", "eth0"), tx_rx("1000", "2000"));
    round(line_of("eth0", 60100, 15008), 20000);
    EXPECT_EQ(ask("avg", "0", "eth0"), tx_rx("500", "2000")); // 500.03 cut short
    EXPECT_EQ(ask("total", "letters", "eth0"), tx_rx("15001", "60000"));
    EXPECT_EQ(ask("line_data", "-1", "eth0"), R"({ "tx": [ "500" ], "rx": [ "2000" ] })");
}

TEST_F(NetStat, WithoutHistoryAnswersZerosAndTheLargestMinimum)
{
    round(line_of("eth0", 100, 7) + line_of("lo", 1, 1));
    round(line_of("lo", 9, 9));
    for (const char *name : {"eth0", "wlan0", "lo"}) {
        for (const char *method : {"cur_data", "avg", "total", "max"})
            EXPECT_EQ(ask(method, "0", name), tx_rx("0", "0")) << name << method;
        EXPECT_EQ(ask("min", "0", name), tx_rx("18446744073709551615", "18446744073709551615"));
        EXPECT_EQ(ask("line_data", "0", name), R"({ "tx": [ ], "rx": [ ] })");
    }
}

TEST_F(NetStat, ExtremesLookAtOneMoreIntervalThanAsked)
{
    uint64_t sum = 0;
    for (const uint64_t bytes : {0U, 900U, 100U, 500U, 300U}) {
        sum += bytes;
        round(line_of("eth0", sum, 2 * sum));
    }
    EXPECT_EQ(ask("max", "1", "eth0"), tx_rx("1000", "500"));
    EXPECT_EQ(ask("min", "1", "eth0"), tx_rx("600", "300"));
    EXPECT_EQ(ask("max", "0", "eth0"), tx_rx("1800", "900"));
    EXPECT_EQ(ask("max", "2147483647", "eth0"), tx_rx("1800", "900"));
    EXPECT_EQ(ask("min", "99999999999", "eth0"), tx_rx("200", "100"));
}

TEST_F(NetStat, ACounterThatWentBackWrapsAndItsRateEndsAtTheLargestNumber)
{
    round(line_of("eth0", 100, 100));
    round(line_of("eth0", 90, 110), 1);
    EXPECT_EQ(ask("cur_data", "", "eth0"), tx_rx("10", "18446744073709551606"));
    EXPECT_EQ(ask("avg", "0", "eth0"), tx_rx("10000", "18446744073709551615"));
    round(line_of("eth0", 100, 115), 0);
    EXPECT_EQ(ask("avg", "1", "eth0"), tx_rx("5", "10")) << "no time: the bytes themselves";
}

TEST_F(NetStat, RefusesInThisOrder)
{
    EXPECT_EQ(ask("", "0", "eth0", -4), "none");
    EXPECT_EQ(ask("avg", "0", "", -4), "none");
    for (const char *method : {"avg", "total", "max", "min"})
        EXPECT_EQ(told_by([&] { ask(method, "-1", "eth0", -6); }), "type=[-1] invalid.\n");
    EXPECT_EQ(told_by([] { ask("sum", "-1", "eth0", -3); }), "method=[sum] not support\n");
    sysstat_net_uninit();
    EXPECT_EQ(told_by([] { ask("sum", "-1", "eth0", -2); }), "g_p_NetstatManager does not exist.\n");
}

TEST_F(NetStat, UnreadableCountersSkipTheRound)
{
    EXPECT_EQ(sysstat_net_sample(), -1);
    round("");
    write_file("/proc/net/dev", "one heading only");
    EXPECT_EQ(sysstat_net_sample(), 0);
}

TEST_F(NetStat, NamesAndDumpsItsInterfacesInOrder)
{
    two_intervals();
    const TJson array(json_object_new_array());
    json_object *out = array.get();
    sysstat_net_info(&out);
    EXPECT_EQ(json_text(out), R"([ "eth0", "wlan0" ])");
    write_file("/out/net_stats.csv", std::string(1000, 'x'));
    EXPECT_EQ(told_by([] { sysstat_net_dump("/out"); }),
              "sysstat_net.cpp:sysstat_net_dump(351) str_stats_folder=[/out]\n");
    EXPECT_EQ(read_file("/out/net_stats.csv"),
              "eth0\ntime_stamp(ms), 1030000, 1020000\ntx, 5000, 10000\nrx, 40000, 20000\n\n"
              "wlan0\ntime_stamp(ms)\ntx\nrx\n\n");
}

TEST_F(NetStat, PrintsTheTotalsOfEth0)
{
    two_intervals();
    EXPECT_EQ(told_by([] { sysstat_net_print(); }),
              "get_total 15min\n    tx    =15000\n    rx    =60000\n    inv_ms=20000\n    tp_ms =0\n"
              "get_total 10sec\n    tx    =5000\n    rx    =40000\n    inv_ms=10000\n    tp_ms =0\n");
}

TEST(NetStatStart, TellsItsStepsAndThatInterfacesCannotBeListed)
{
    EXPECT_EQ(fake::stderr_of([] { const TNetstatManager manager(std::nullopt); }),
              "statManager.h:TStatManagerBase(57)\nsysstat_net.h:TNetstatManager(90)\nsysstat_net.cpp:init_map(29)\n"
              "getifaddrs failed.\n"
              "sysstat_net.h:~TNetstatManager(95)\nstatManager.h:~TStatManagerBase(64)\n");
}

TEST(NetStatStart, FollowsLinkLayerInterfacesUpOrDownButTheLoopback)
{
    sockaddr packet = {AF_PACKET, {}};
    sockaddr inet = {AF_INET, {}};
    struct {
        char name[8];
        unsigned flags;
        sockaddr *address;
    } entries[] = {{"lo", IFF_UP | IFF_LOOPBACK, &packet},
                   {"eth0", IFF_UP, &inet},
                   {"down0", 0, &packet},
                   {"tun0", IFF_UP, nullptr},
                   {"eth0", IFF_UP, &packet}};
    ifaddrs list[std::size(entries)] = {};
    for (size_t i = 0; i < std::size(entries); ++i) {
        list[i].ifa_name = entries[i].name;
        list[i].ifa_flags = entries[i].flags;
        list[i].ifa_addr = entries[i].address;
        list[i].ifa_next = i + 1 < std::size(entries) ? &list[i + 1] : nullptr;
    }
    EXPECT_EQ(net_tracked(list), (std::vector<std::string>{"down0", "eth0"}));
}

TEST(NetLine, NameUpToTheFirstColonAndTwoOfItsCounters)
{
    const std::string n32(32, 'n');
    const struct {
        std::string line;
        bool result;
        std::string name;
        uint64_t rx, tx;
    } cases[] = {
        {"  eth0: 10 2 3 4 5 6 7 8 90 10 11 12 13 14 15 16\n", true, "eth0", 10, 90},
        {"eth0:1: 7 2 3 4 5 6 7 8 90\n", true, "eth0", 1, 0}, // counters end at the second colon
        {"eth0 : 10 2 3 4 5 6 7 8 90\n", true, "eth0", 10, 90},
        {n32 + ": 1 2 3 4 5 6 7 8 9\n", true, n32, 1, 9},
        {n32 + "nnnnnnnn: 1 2 3 4 5 6 7 8 9\n", true, n32, 1, 9},
        {"eth0: 10 2 3\n", true, "eth0", 10, 0},
        {"eth0 10 2 3 4 5 6 7 8 90\n", false, "", 0, 0},
        {" \n", false, "", 0, 0},
        {"", false, "", 0, 0},
    };
    for (const auto &one : cases) {
        std::string name;
        T_NET_STAT stat;
        EXPECT_EQ(net_line_parse(one.line, &name, &stat), one.result) << one.line;
        EXPECT_EQ(name, one.name) << one.line;
        EXPECT_EQ(stat.rx, one.rx) << one.line;
        EXPECT_EQ(stat.tx, one.tx) << one.line;
    }
}

} // namespace
