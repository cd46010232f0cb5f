#include "service/VeloMond_RESTful.h"

#include <bit>
#include <gmock/gmock.h>
#include <new>
#include <unistd.h>
#include <utility>

#include "base/text.h"
#include "common/debug_log.h"
#include "fake_platform/fake_platform.h"
#include "service/envelope.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/sysstat_camconn.h"

namespace {

using testing::EndsWith, testing::HasSubstr, testing::MatchesRegex, testing::StartsWith;

TEST(Envelope, CarriesDataOnlyWithSuccessAndAValue)
{
    const auto value = [] { return json_object_new_string("v"); };
    auto *const error_pointer = std::bit_cast<json_object *>(UINTPTR_MAX - 3); // as json-c once gave them
    EXPECT_EQ(envelope_text(0, value()), R"({ "return": 0, "data": "v" })");
    EXPECT_EQ(envelope_text(0, error_pointer), R"({ "return": 0 })");
    EXPECT_EQ(envelope_text(-4, value()), R"({ "return": -4 })"); // and lets go of the value
}

TEST(Service, ReportsItsHealthCutToTheBuffer)
{
    std::string buffer(16, 'x');
    EXPECT_TRUE(service_health_check(buffer.data(), 10));
    EXPECT_EQ(buffer, std::string("health\0\0\0\0xxxxxx", 16));
    EXPECT_TRUE(service_health_check(buffer.data(), 4));
    EXPECT_EQ(buffer, std::string("hea\0th\0\0\0\0xxxxxx", 16));
    EXPECT_TRUE(service_health_check(nullptr, 0)); // and writes nothing
}

constexpr const char *kDevice = "/dev/mapper/cachedev_of_31_char"; // the longest that its argument may be

class Handlers : public fake::TQuietTest {
protected:
    Handlers()
    {
        std::filesystem::create_directories(root() + "/dev/mapper");
        std::filesystem::create_symlink("/dev/null", root() + kDevice);
        for (const auto init : {sysstat_cpu_init, sysstat_disk_init, sysstat_memory_init, sysstat_camconn_init})
            EXPECT_EQ(init(), 0);
        g_p_NetstatManager = new TNetstatManager(std::vector<std::string>{"eth0"});
    }
    ~Handlers() override
    {
        for (const auto uninit : {sysstat_cpu_uninit, sysstat_net_uninit, sysstat_disk_uninit, sysstat_memory_uninit,
                                  sysstat_camconn_uninit})
            uninit();
    }
    /* Two rounds ten seconds apart, between which everything has moved by another amount. */
    static void two_rounds()
    {
        const long ticks = sysconf(_SC_CLK_TCK);
        write_file("/proc/50/comm", "VeloMond\n");
        write_file("/proc/50/statm", "10 9\n");
        for (const long i : {0L, 1L}) {
            write_file("/proc/stat", i == 0 ? "cpu  0\n" : "cpu  10 5 15 21 24 3 7 15 1 1\n");
            write_file("/proc/50/stat", text_format("50 (V) S 1 1 1 0 -1 0 0 %ld 0 %ld %ld %ld 0 0 0 0 0 0 0 0 2\n",
                                                    7 * i, 6 * i, 5 * ticks * i, 10 * ticks * i));
            write_file("/proc/meminfo", "MemTotal: 1000\nMemFree: 100\nBuffers: 20\nCached: 30\nSReclaimable: 7\n"
                                        "Shmem: 6\nSwapTotal: 50\nSwapFree: 40\n");
            write_file("/proc/vmstat", text_format("pgfault %ld\npgmajfault %ld\n", 400 * i, 3 * i));
            write_file("/proc/net/dev", text_format("\n\neth0: %ld 2 3 4 5 6 7 8 %ld\n", 20000 * i, 10000 * i));
            write_file("/proc/diskstats", text_format("1 3 dm-0 %ld 0 %ld %ld %ld 0 %ld %ld 0 0 0\n", 10 * i, 40 * i,
                                                      25 * i, 20 * i, 160 * i, 70 * i));
            fake::advance_ms(10000);
            for (const auto sample :
                 {sysstat_cpu_sample, sysstat_net_sample, sysstat_disk_sample, sysstat_memory_sample})
                EXPECT_EQ(sample(), 0);
        }
    }
    /* What the round, a dump and a debug print call returns 0, with a manager or without. */
    static void run_all()
    {
        for (const auto call : {sysstat_cpu_sample, sysstat_net_sample, sysstat_disk_sample, sysstat_memory_sample,
                                sysstat_cpu_print, sysstat_net_print, sysstat_disk_print})
            EXPECT_EQ(call(), 0);
        for (const auto dump : {sysstat_cpu_dump, sysstat_net_dump, sysstat_disk_dump, sysstat_memory_dump})
            EXPECT_EQ(dump("/missing"), 0);
        const TJson array(json_object_new_array());
        json_object *out = array.get();
        EXPECT_TRUE(sysstat_disk_info(&out) == 0 && sysstat_net_info(&out) == 0);
    }
    /* The body for "route?argument=value&..."; without the quotes around names and texts. */
    static std::string get(const std::string &query, const char *method = "GET", const std::string &sent = "")
    {
        std::map<std::string, std::string> arguments;
        size_t end = query.find('?');
        const std::string route = query.substr(0, end);
        while (end != std::string::npos) {
            const size_t begin = end + 1, is = query.find('=', begin);
            end = query.find('&', begin);
            arguments[query.substr(begin, is - begin)] = query.substr(is + 1, end - is - 1);
        }
        const auto reply = fake::call_route(method, "/sysmonService/" + route, arguments, sent);
        if (reply == nullptr)
            return "no route";
        EXPECT_EQ(reply->get_response_code(), 200);
        EXPECT_EQ(reply->get_content_type(), "application/json");
        std::string body = reply->get_body();
        std::erase_if(body, [](char c) { return c == '"' || c == '\\'; });
        return body;
    }
};

TEST_F(Handlers, AnswersAreTheFiguresOfTheirMonitorUnderTheirNames)
{
    two_rounds();
    const std::string amounts = "tx: 10000, rx: 20000";
    const std::pair<std::string, std::string> cases[] = {
        {"cpu_info?name=system_all&method=cur_data",
         "user_pcnt: 10.0, sys_pcnt: 25.0, iowait_pcnt: 24.0, steal_pcnt: 15.0, idle_pcnt: 21.0"},
        {"cpu_info?name=VeloMond&method=avg", "total_pcnt: 150.0, user_pcnt: 50.0, sys_pcnt: 100.0"},
        {"cpu_info?name=VeloMond&method=line_data", "total_pcnt: [ 150.0 ], user_pcnt: [ 50.0 ], sys_pcnt: [ 100.0 ]"},
        {"mem_info?name=system_all&method=cur_data",
         "MemTotal: 1000, MemUsed: 850, MemFree: 100, MemAvailable: 150, Buffers: 20, Cached: 30, SReclaimable: 7, "
         "SwapTotal: 50, SwapFree: 40, pgmajfault: 3, pgfault: 400, zfs_mem_cache: 0"},
        {"mem_info?name=system_all&method=avg&type=1",
         "MemTotal: 1000, MemFree: 100, MemAvailable: 150, Buffers: 20, Cached: 30, SwapTotal: 50, SwapFree: 40, "
         "pgmajfault: 3, pgfault: 400"},
        {"mem_info?name=VeloMond&method=cur_data",
         text_format("VmSize: 40, VmRSS: %ld, maj_flt: 6, min_flt: 7", 2 * sysconf(_SC_PAGESIZE) / 1024)},
        {"network_info?if_name=eth0&method=cur_data", amounts},
        {"network_info?if_name=eth0&method=total&type=1", amounts},
        {"network_info?if_name=eth0&method=avg", "tx: 1000, rx: 2000"},
        {"network_info?if_name=eth0&method=max", amounts},
        {"disk_info?method=cur_data", "throughput: 100, rd_latency: 2.5, wr_latency: 3.5, rd_io: 10, wr_io: 20"},
        {"disk_info?method=total", "throughput: 100, rd_io: 10, wr_io: 20"},
        {"disk_info?method=avg&type=1", "throughput: 10.0, rd_latency: 2.5, wr_latency: 3.5, rd_io: 1.0, wr_io: 2.0"}};
    for (const auto &[query, data] : cases)
        EXPECT_EQ(get(query + "&vol_name=" + kDevice), "{ return: 0, data: { " + data + " } }") << query;
    run_all();
}

TEST_F(Handlers, CutArgumentsAsTheirBuffersDo)
{
    EXPECT_THAT(told_by([] { get(std::string("disk_info?method=avg&vol_name=") + kDevice + "n"); }),
                HasSubstr(text_format("VeloMond_RESTful:proc_dsk_get(169)\nstr_key=[%s 1 3]\n", kDevice)));
    for (const std::string begin : {"cpu_info?name=x&method=avg&type=", "mem_info?name=x&method=avg&type=",
                                    "network_info?if_name=x&method=avg&type=", "disk_info?vol_name=x&method=avg&type=",
                                    "cam_conn?method=total&count="}) { // 31 characters decide
        EXPECT_EQ(get(begin + std::string(29, ' ') + "-1"), "{ return: -6 }") << begin;
        EXPECT_THAT(get(begin + std::string(30, ' ') + "-1"), HasSubstr("return: 0")) << begin;
    }
    for (const auto &[query, size] : {std::pair("cpu_info?name=x", 63U),
                                      {"mem_info?name=x", 63},
                                      {"network_info?if_name=x", 31},
                                      {"disk_info?vol_name=x", 31},
                                      {"smart_info?name=x", 31},
                                      {"syshealth_info?name=x", 31}}) {
        told();
        get(query + ("&method=" + std::string(size + 1, 'm')));
        EXPECT_THAT(told(), EndsWith("method=[" + std::string(size, 'm') + "] not support\n"));
    }
    get("cam_conn?method=" + std::string(33, 'm'));
    EXPECT_THAT(log_text(kLogCamConn), HasSubstr("method=[" + std::string(31, 'm') + "] not support."));
    EXPECT_THAT(told_by([] { get("cpu_info?name=n&method=\x1b[2J\xc3\xa9\x7f\nforged"); }), // no line of its own
                HasSubstr("method=[\\x1b[2J\xc3\xa9\\x7f\\x0aforged] not support\n"));
}

TEST_F(Handlers, NameTheMonitorThatIsNotUp)
{
    const std::tuple<const char *, int (*)(), const char *, int> cases[] = {
        {"cpu_info?method=a&name=b", sysstat_cpu_uninit, "g_p_CpustatManager", 0}, // callers rely on the 0
        {"mem_info?method=a&name=b", sysstat_memory_uninit, "g_p_MemorystatManager", -2},
        {"network_info?method=a&if_name=b", sysstat_net_uninit, "g_p_NetstatManager", -2},
        {"disk_info?method=a&vol_name=b", sysstat_disk_uninit, "g_p_DiskstatManager", -2}};
    for (const auto &[query, uninit, name, result] : cases) {
        EXPECT_EQ(uninit(), 0);
        EXPECT_THAT(
            told_by([query = query, result = result] { EXPECT_EQ(get(query), text_format("{ return: %d }", result)); }),
            MatchesRegex(text_format("(VeloMond_RESTful:.*\n)?%s does not exist.\n", name)));
    }
    EXPECT_EQ(sysstat_net_sample(), -1); // its file is missing, which counts first
    write_file("/proc/net/dev", "");
    run_all();
    EXPECT_EQ(sysstat_camconn_uninit(), 0);
    EXPECT_EQ(get("cam_conn?method=cur_data"), "{ return: -2 }");
}

TEST_F(Handlers, ThatThrowAnswerAsAFailedOperationDoes)
{
    fake::state()->disk_list = [](int, t_storage_disk_list &) -> uint32_t { throw std::bad_alloc(); };
    EXPECT_THAT(told_by([] { EXPECT_EQ(get("disk_info?method=notify&vol_name=x"), "{ return: -1 }"); }),
                EndsWith("\nVeloMond_RESTful:proc_dsk_get failed: std::bad_alloc\n"));
    EXPECT_EQ(get("Notify", "PUT", R"({"notice_reason":{"type":1033}})"), "{ retCode: -1 }");
}

TEST_F(Handlers, EachRouteCallsItsMonitorWithItsArguments)
{
    const std::string names = "Vnvrd, VrecStream, VliveStream, Vplayback, VsearchIndex, VcamManager, VeventEngine, "
                              "VmetaService, Vnotifyd, VconfigSvc, VwebGateway, Vnameserver, VmsgBus, VeloMond, "
                              "VauthService, VstorageMgr, VdbService, VbackupSvc, VdashboardRx, VlogService, VtimeSync";
    const std::string status = get("status");
    EXPECT_THAT(status, StartsWith("{ return: 0, cpu_info: { core_no: ")); // the list of cores: tests/e2e
    EXPECT_THAT(status, EndsWith(std::string(", system_all ] }, mem_info: { mem_phy: 0, mem_swap: 0 }, disk_info: [ ") +
                                 kDevice + " ], network_info: [ eth0 ], daemon_list: [ " + names + " ] }"));
    const std::string traced = "sysstat_disk.cpp:sysstat_disk_info(546)\nsysstat_net.cpp:sysstat_net_info(336)\n";
    EXPECT_EQ(told_by([&] { EXPECT_EQ(get("status"), status); }), traced); // each time
    sysstat_net_uninit();
    EXPECT_EQ(told_by([] { EXPECT_THAT(get("status"), HasSubstr("network_info: [ ], daemon_list")); }), traced);
    g_p_NetstatManager = new TNetstatManager(std::vector<std::string>{"eth1"});
    EXPECT_THAT(get("status"), HasSubstr("network_info: [ eth1 ], daemon_list"));
    EXPECT_THAT(get("smart_info?method=disk_update"),
                MatchesRegex(R"(\{ return: 0, data: \{ utc_time: [0-9]+, disk_update: [a-z_]+ \} \})"));
    EXPECT_THAT(get("syshealth_info?method=fan_update"),
                MatchesRegex(R"(\{ return: 0, data: \{ utc_time: [0-9]+, fan_update: [a-z]+ \} \})"));
    EXPECT_THAT(get("syshealth_info?method=sys_health"), StartsWith("{ return: 0, data: { sys_health: "));
    EXPECT_THAT(get("cam_conn?method=channel_info"), "{ return: 0, data: [ ] }");
    EXPECT_EQ(get("banip_mgr", "PUT"), "{ return: -1, data: function not support. }");
    EXPECT_EQ(get("Notify", "PUT"), "{ retCode: -1 }");
    write_file("/Vtmp/keep", "");
    EXPECT_THAT(
        told_by([] { EXPECT_EQ(get("statistics_dump"), "{ return: 0 }"); }),
        MatchesRegex("VeloMond:VeloMond_statistics_dump.392.\nVeloMond:VeloMond_stats_dump.260. (str_stats_folder="
                     ".*)\n.*sysstat_vol.cpp:sysstat_vol_dump.943. str_stats_folder=./Vtmp/.sys_stats/log_0.\n"));
    EXPECT_TRUE(exists("/Vtmp/.sys_stats/log_0/mem_stats.csv"));
    for (const char *route : {"cpu_info", "mem_info", "network_info", "disk_info", "smart_info", "syshealth_info"})
        EXPECT_EQ(get(route), "{ return: -4 }") << route;
    EXPECT_EQ(told_by([] { get("recording_state"); }), "VeloMond_RESTful:proc_recording_state_get(504)\n");
    EXPECT_THAT(get("recording_state"), MatchesRegex("\\{ utc_time: [0-9]+, camera_recording_update: [a-z]+ \\}"));
}

} // namespace
