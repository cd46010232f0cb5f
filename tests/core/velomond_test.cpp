#include "core/VeloMond.h"

#include <chrono>
#include <future>
#include <gmock/gmock.h>

#include "common/debug_log.h"
#include "core/round_clock.h"
#include "fake_platform/fake_platform.h"
#include "health/sysstat_vol.h"
#include "housekeeping/sysstat_autobak.h"
#include "service/VeloMond_RESTful.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_net.h"

namespace {

using testing::AllOf, testing::HasSubstr;

TEST(RoundClock, RunsTenSecondsAfterTheStartAndAfterEachRoundsBeginning)
{
    TRoundClock clock(100);
    std::string left_s = std::to_string(clock.left_s(135));
    for (const time_t now : {100, 101, 109, 110, 110, 112, 119, 120, 135, 136, 144, 145})
        left_s.append(clock.due(now) ? " round " : " ").append(std::to_string(clock.left_s(now)));
    EXPECT_EQ(left_s, "1 10 9 1 round 10 10 8 1 round 10 round 10 9 1 round 10");
}

class Lifecycle : public fake::TQuietTest {};
using LifecycleDeathTest = fake::TPlatformTest;

TEST_F(Lifecycle, WithoutThreadsEachLogsItInItsUsualPlace)
{
    fake::state()->thread_error = 11;
    fake::g_wall_ms = 1'700'095'500'000; // 00:45
    const std::string told = told_by([] {
        VeloMond_start();
        EXPECT_EQ(sysstat_autobak_check(), 0);
        VeloMond_stop();
    });
    EXPECT_THAT(told, HasSubstr("\n VeloMond_monitor_thread_start failedVeloMond_RESTful:ntf_init(639)\n"));
    const std::string failed = " pthread_create failed (11)";
    EXPECT_EQ(log_text(kLogCamConn), "sysstat_disk.cpp:disk_thread_start(730)" + failed +
                                         "sysstat_vol.cpp:vol_thread_start(921)" + failed +
                                         "sysstat_smart.cpp:smart_thread_start(489)" + failed +
                                         "sysstat_camconn.cpp:camconn_thread_start(187)" + failed);
    EXPECT_EQ(log_text(kLogServerName), "sysstat_servername.cpp:servername_thread_start(257)" + failed);
    EXPECT_EQ(log_text(kLogRecState), "recording_stat.cpp:recording_stat_init (269), pthread_create fail:11\n");
    EXPECT_EQ(log_text(kLogReverseProxy), "reverse_proxy.cpp:start_threads(214)" + failed);
    EXPECT_EQ(log_text(kLogMain), "sysstat_syshealth.cpp:syshealth_thread_start(176)" + failed +
                                      "sysstat_db.cpp:sysdb_thread_start(209)-" + failed +
                                      "sysstat_autobak:sysstat_autobak_thread_start(100)" + failed +
                                      "sysstat_autobak:sysstat_cache_mount_autobak_thread_start(125)" + failed);
    for (const auto call : {sysstat_net_init, sysstat_net_uninit, vol_thread_start, vol_thread_stop})
        EXPECT_EQ(call(), 0);
}

/* The daemon, up, on a machine with ZFS: a script there is a step in the middle of a round. */
class Rounds : public fake::TQuietTest {
protected:
    Rounds()
    {
        fake::state()->platform_system = 2;
        write_file("/Vtmp/keep", "");
        VeloMond_start();
        fake::pass_waits(0, "MAIN-worker");
    }
    ~Rounds() override { VeloMond_stop(); }
    static size_t intervals() { return g_p_CpustatManager->copy_history("VeloMond")->size(); }
};

TEST_F(Rounds, ComeEveryTenSecondsHoweverOftenTheWorkerIsWoken)
{
    std::filesystem::create_directories(root() + "/proc");
    for (const size_t expected : {0U, 1U, 2U}) {
        fake::pass_waits(1, "MAIN-worker");
        for (int i = 0; i < 20; ++i) {
            fake::advance_ms(300);
            monitor_wakeup();
            fake::pass_waits(0, "MAIN-worker");
        }
        EXPECT_EQ(intervals(), expected);
    }
}

TEST_F(Rounds, AStepThatFailsLeavesTheOthersAlone)
{
    fake::state()->popen = [](const fake::argv_t &argv) -> std::string {
        return argv.front() == "/usr/sbin/sysctl" ? throw std::runtime_error("no memory") : ""; // no watcher's
    };
    fake::state()->cmv_record.value3 = 1;
    EXPECT_EQ(told_by([] { fake::pass_waits(1, "MAIN-worker"); }),
              "Cannot open /proc: No such file or directory\nVeloMond: a step of the round failed: no memory\n");
    EXPECT_NE(log_text(kLogCmv), "") << "of the last step";
    std::filesystem::create_directories(root() + "/proc");
    fake::pass_waits(2, "MAIN-worker");
    EXPECT_EQ(intervals(), 1U);
}

TEST_F(Rounds, ADumpWaitsForTheRoundInProgress)
{
    std::future<int> dump;
    fake::state()->popen = [&](const fake::argv_t &argv) {
        if (argv.front() == "/usr/sbin/sysctl") { // not a watcher's, beside the round
            dump = std::async(std::launch::async, VeloMond_statistics_dump);
            EXPECT_EQ(dump.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
        }
        return "1\n1\n1\n";
    };
    fake::pass_waits(1, "MAIN-worker");
    ASSERT_TRUE(dump.valid());
    EXPECT_EQ(dump.get(), 0);
    EXPECT_TRUE(exists("/Vtmp/.sys_stats/log_0/net_stats.csv"));
}

TEST_F(Lifecycle, GoesOnWithoutAService)
{
    const std::string up = "VeloMond_RESTful:ntf_init(639)\n", down = "VeloMond_RESTful:ntf_uninit(646)\n";
    const std::tuple<long long fake::TState::*, int, int, std::string> cases[] = {
        {&fake::TState::create_result, -1, 0, "ssci_server_create failed, ret=[5]\n exit.\n" + down},
        {&fake::TState::start_result, -2, 0, "ssci_server_start failed, ret=[5]\n exit.\n" + down},
        {&fake::TState::session_result, 0, 0, up + "the notification session cannot be started: error 5\n" + down},
        {&fake::TState::stop_result, 0, -1, up + down + "ssci_server_stop failed, ret=[5]\n exit.\n"},
        {&fake::TState::destroy_result, 0, -2, up + down + "ssci_server_destory failed, ret=[5]\n exit.\n"},
    };
    for (const auto &[result, start, stop, text] : cases) {
        fake::state().state.*result = 5;
        EXPECT_EQ(sysmon_service_init(), start) << text;
        EXPECT_EQ(sysmon_service_uninit(), stop) << text;
        EXPECT_EQ(told(), text);
        EXPECT_EQ(VeloMond_start(), 0);
        EXPECT_EQ(VeloMond_restart(), 0); // logs its line and does nothing
        EXPECT_EQ(VeloMond_stop(), 0);
        EXPECT_THAT(told(), AllOf(HasSubstr("VeloMond:VeloMond_restart(386)\n"), HasSubstr("sysstat_cpu_uninit(802)")));
        fake::state().state.*result = 0;
    }
}

TEST_F(LifecycleDeathTest, AStopThatHangsNamesItsStepAndEnds)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const std::string name :
         {"query service", "MAIN-worker", "CPU statistics", "network statistics", "disk statistics",
          "memory statistics", "server-name watcher", "volume watcher", "SMART watcher", "fan watcher",
          "recording watcher", "camera watcher", "database watcher", "proxy-rule watcher"}) {
        ++fake::state()->hanging_alarm;
        EXPECT_EXIT((VeloMond_start(), VeloMond_stop()), testing::ExitedWithCode(0),
                    "\n" + name + " hangs: the stop ends without it\n$");
    }
}

} // namespace
