#include "stats/sysstat_net.h"

#include <net/if.h>
#include <sys/socket.h>

#include "base/text.h"
#include "stats/stat_test.h"

namespace {

constexpr const char *kHeadings = "Inter-|   Receive\n face |bytes    packets\n";

/* A line of /proc/net/dev. */
std::string line_of(const std::string &name, uint64_t rx, uint64_t tx)
{
    return text_format("%6s: %7lu 1 2 3 4 5 6 7 %7lu 9 10 11 12 13 14 15\n", name.c_str(), rx, tx);
}

int init()
{
    g_p_NetstatManager = new TNetstatManager(std::vector<std::string>{"wlan0", "eth0", "eth0"});
    return 0;
}

class NetStat : public TStatTest<init, sysstat_net_uninit, sysstat_net_sample, sysstat_net_proc> {
protected:
    /* Intervals of 10, 10 and 20 s. */
    NetStat()
    {
        round(line_of("eth0", 100, 7) + line_of("lo", 5, 5));
        round(line_of("eth0", 190, 90007) + line_of("lo", 6, 6));
        round(line_of("eth0", 20190, 100007));
        round(line_of("eth0", 60190, 105008), 20000);
    }
    static void round(const std::string &lines, uint64_t ms = 10000)
    {
        TStatTest::round("/proc/net/dev", kHeadings + lines, ms);
    }
};

TEST_F(NetStat, AnswersBytesRatesAndExtremesOfOneMoreIntervalThanAsked)
{
    const TStatAnswer cases[] = {
        {"cur_data", "", "eth0", "5001 40000"},
        {"avg", "2", "eth0", "500 2000"}, // 500.03 cut short
        {"total", "letters", "eth0", "105001 60090"},
        {"line_data", "-1", "eth0", R"([ "2625" ] [ "1502" ])"},
        {"max", "1", "eth0", "10000 40000"},
        {"min", "1", "eth0", "5001 20000"},
        {"max", "0", "eth0", "90000 40000"},
        {"min", "99999999999", "eth0", "5001 90"},
        {"avg", "0", "wlan0", "0 0"}, // without history
        {"max", "0", "lo", "0 0"},    // nor tracked
        {"min", "0", "wlan0", "18446744073709551615 18446744073709551615"},
        {"line_data", "0", "lo", "[ ] [ ]"},
    };
    for (const auto &[method, type, name, values] : cases)
        EXPECT_EQ(ask(method, type, name), values) << method << type << name;
}

TEST_F(NetStat, ACounterThatWentBackWrapsAndItsRateEndsAtTheLargestNumber)
{
    round(line_of("eth0", 60180, 105018), 700);
    EXPECT_EQ(ask("cur_data", "", "eth0"), "10 18446744073709551606");
    EXPECT_EQ(ask("avg", "1", "eth0"), "14 18446744073709551615");
    round(line_of("eth0", 60190, 105023), 0); // no time: the bytes themselves
    EXPECT_EQ(ask("avg", "1", "eth0"), "5 10");
}

TEST_F(NetStat, HeadingsAreNoInterfacesAndTheRestOfALongLineIsALine)
{
    for (const uint64_t rx : {7U, 9U}) {
        const std::string heading = line_of("wlan0", 100 * rx, 0);
        TStatTest::round("/proc/net/dev",
                         heading + heading + std::string(255, 'x') + line_of("wlan0", rx, 3 * rx) + "eth0: \n");
    }
    EXPECT_EQ(ask("total", "0", "wlan0"), "6 2");
}

TEST_F(NetStat, RefusesInThisOrder)
{
    for (const char *method : {"avg", "total", "max", "min"})
        EXPECT_EQ(refusal(method, "-1", "eth0", -6), "type=[-1] invalid.\n");
    EXPECT_EQ(refusal("sum", "-1", "eth0", -3), "method=[sum] not support\n");
}

TEST_F(NetStat, DumpsItsInterfacesInOrderAndPrintsEth0)
{
    write_file("/out/net_stats.csv", std::string(1000, 'x'));
    EXPECT_EQ(told_by([] { sysstat_net_dump("/out"); }),
              "sysstat_net.cpp:sysstat_net_dump(351) str_stats_folder=[/out]\n");
    EXPECT_EQ(read_file("/out/net_stats.csv"),
              "eth0\ntime_stamp(ms), 1050000, 1030000, 1020000\ntx, 5001, 10000, 90000\nrx, 40000, 20000, 90\n\n"
              "wlan0\ntime_stamp(ms)\ntx\nrx\n\n");
    EXPECT_NE(told_by([] { EXPECT_TRUE(TNetstatManager(std::nullopt).keys().empty()); }).find("\ngetifaddrs failed.\n"),
              std::string::npos);
    json_object *no_output = nullptr;
    EXPECT_EQ(told_by([&] { EXPECT_EQ(sysstat_net_info(&no_output), -1); }), "sysstat_net.cpp:sysstat_net_info(336)\n");
    EXPECT_EQ(told_by([] { sysstat_net_print(); }),
              "get_total 15min\n    tx    =105001\n    rx    =60090\n    inv_ms=40000\n    tp_ms =0\n"
              "get_total 10sec\n    tx    =5001\n    rx    =40000\n    inv_ms=20000\n    tp_ms =0\n");
}

TEST(NetStatStart, FollowsLinkLayerInterfacesUpOrDownButTheLoopback)
{
    sockaddr packet = {AF_PACKET, {}};
    sockaddr inet = {AF_INET, {}};
    char names[][8] = {"lo", "eth0", "down0", "tun0", "eth0"};
    const unsigned flags[] = {IFF_UP | IFF_LOOPBACK, IFF_UP, 0, IFF_UP, IFF_UP};
    sockaddr *const addresses[] = {&packet, &inet, &packet, nullptr, &packet};
    ifaddrs list[std::size(names)] = {};
    for (size_t i = 0; i < std::size(list); ++i) {
        list[i].ifa_name = names[i];
        list[i].ifa_flags = flags[i];
        list[i].ifa_addr = addresses[i];
        list[i].ifa_next = i + 1 < std::size(list) ? &list[i + 1] : nullptr;
    }
    EXPECT_EQ(net_tracked(list), (std::vector<std::string>{"down0", "eth0"}));
}

TEST(NetLine, NameUpToTheFirstColonAndTwoOfItsCounters)
{
    const std::string x32(32, 'x');
    const std::tuple<std::string, std::string, uint64_t, uint64_t> cases[] = {
        {"  eth0: 10 2 3 4 5 6 7 8 90 10 11 12 13 14 15 16\n", "eth0", 10, 90},
        {"eth0:1: 7 2 3 4 5 6 7 8 90\n", "eth0", 1, 0}, // counters end at the second colon
        {x32 + "xxxxxxxx: 1 2 3 4 5 6 7 8 9\n", x32, 1, 9},
        {"eth0: 10 2 3\n", "eth0", 10, 0},
    };
    for (const auto &[line, name, rx, tx] : cases) {
        const auto parsed = net_line_parse(line);
        EXPECT_EQ(std::tie(parsed->name, parsed->stat.rx, parsed->stat.tx), std::tie(name, rx, tx)) << line;
    }
    for (const char *line : {"eth0 10 2 3 4 5 6 7 8 90\n", " \n", " : 1\n", ": 1 2 3 4 5 6 7 8 9\n"})
        EXPECT_FALSE(net_line_parse(line)) << line;
}

} // namespace
