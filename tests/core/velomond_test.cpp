#include "core/VeloMond.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/round_clock.h"
#include "fake_platform/fake_platform.h"

namespace {

using testing::HasSubstr;

TEST(RoundClock, RunsTenSecondsAfterTheStartAndAfterEachRoundsBeginning)
{
    TRoundClock clock(100);
    std::vector<time_t> rounds;
    for (const time_t now : {100, 101, 109, 110, 110, 112, 119, 120, 135, 136, 144, 145})
        if (clock.due(now))
            rounds.push_back(now);
    EXPECT_EQ(rounds, (std::vector<time_t>{110, 120, 135, 145}));
}

/* The order in which texts are told. */
void expect_in_order(const std::string &told, std::initializer_list<const char *> texts)
{
    size_t from = 0;
    for (const char *text : texts) {
        const size_t found = told.find(text, from);
        ASSERT_NE(found, std::string::npos) << text << "\nin\n" << told;
        from = found + 1;
    }
}

class Lifecycle : public fake::TPlatformTest {};

TEST_F(Lifecycle, TheServiceComesUpLastAndGoesDownFirst)
{
    const std::string told = fake::stderr_of([] {
        EXPECT_EQ(VeloMond_start(), 0);
        monitor_wakeup();
        EXPECT_EQ(VeloMond_restart(), 0);
        EXPECT_EQ(VeloMond_stop(), 0);
    });
    expect_in_order(told, {"VeloMond:VeloMond_start(364)\n",
                           "sysstat_cpu.cpp:sysstat_cpu_init(792)\n",
                           "sysstat_net.cpp:sysstat_net_init(405)\n",
                           "sysstat_disk.cpp:sysstat_disk_init(745)\n",
                           "sysstat_memory.cpp:sysstat_memory_init(1096)\n",
                           "sysstat_syshealth.cpp:sysstat_syshealth_init(190)\n",
                           "sysstat_camconn.h:TCamConnStatManager",
                           "reverse_proxy.cpp:reverse_proxy_init",
                           "VeloMond_RESTful:ntf_init(639)\n",
                           "VeloMond:VeloMond_restart(386)\n",
                           "VeloMond:VeloMond_stop(375)\n",
                           "VeloMond_RESTful:ntf_uninit(646)\n",
                           " VeloMond_monitor_main was terminated.\n",
                           "end wait_for_terminate...\n",
                           "sysstat_cpu.cpp:sysstat_cpu_uninit(802)\n",
                           "sysstat_net.cpp:sysstat_net_uninit(412)\n",
                           "sysstat_disk.cpp:sysstat_disk_uninit(756)\n",
                           "sysstat_memory.cpp:sysstat_memory_uninit(1107)\n",
                           " servername_monitor_main was terminated.\n",
                           " vol_monitor_main was terminated.\n",
                           " smart_monitor_main was terminated.\n",
                           "sysstat_syshealth.cpp:sysstat_syshealth_uninit(198)\n",
                           " Recording_state_monitor_main was terminated.\n",
                           "sysstat_camconn.h:~TCamConnStatManager",
                           " do_data_processing was terminated.\n",
                           "reverse_proxy.cpp:reverse_proxy_uninit"});
    const std::vector<std::string> calls = fake::service_calls();
    ASSERT_GE(calls.size(), 4U);
    EXPECT_EQ(calls[0], "nameserver localhost 10182"); // the camera connections'
    EXPECT_EQ(calls[1], "create sysmonService localhost 10191 2 localhost 10182");
    EXPECT_EQ(calls[2], "start");
    EXPECT_EQ(calls[3], "session run sysmonService /sysmonService/Notify");
}

TEST_F(Lifecycle, ADumpTellsItsFolderAndFillsIt)
{
    write_file("/Vtmp/keep", "");
    const std::string told = fake::stderr_of([] {
        VeloMond_start();
        EXPECT_EQ(VeloMond_statistics_dump(), 0);
        VeloMond_stop();
    });
    expect_in_order(told, {"VeloMond:VeloMond_statistics_dump(392)\n",
                           "VeloMond:VeloMond_stats_dump(260) str_stats_folder=[/Vtmp/.sys_stats/log_0]\n"});
    EXPECT_THAT(read_file("/Vtmp/.sys_stats/log_0/cpu_stats.csv"), HasSubstr("__daemon_list\n"));
}

TEST_F(Lifecycle, GoesOnWithoutAService)
{
    fake::state()->create_result = 5;
    fake::state()->stop_result = 6;
    EXPECT_THAT(fake::stderr_of([] {
                    VeloMond_start();
                    VeloMond_stop();
                }),
                testing::AllOf(HasSubstr("ssci_server_create failed, ret=[5]\n exit.\n"),
                               HasSubstr("ssci_server_stop failed, ret=[6]\n exit.\n"),
                               HasSubstr("sysstat_cpu_uninit(802)")));
    fake::state()->create_result = 0;
    fake::state()->start_result = 7;
    EXPECT_THAT(fake::stderr_of([] {
                    VeloMond_start();
                    VeloMond_stop();
                }),
                HasSubstr("ssci_server_start failed, ret=[7]\n exit.\n"));
}

} // namespace
