#include "housekeeping/sysstat_db.h"

#include <tuple>

#include "common/system_volume.h"
#include "fake_platform/fake_platform.h"

namespace {

constexpr int64_t kGb = int64_t{1} << 30;

TEST(Database, IsTooLargeAboveAShareOfASmallVolumeOnly)
{
    const std::tuple<uint64_t, int64_t, int64_t, bool> cases[] = {
        // MB of the database, size of the volume, its second figure; whether it is too large
        {51, kGb, kGb, false},
        {52, kGb, kGb, true},            // 5 % of 1024 MB is 51.2
        {5, 100 << 20, kGb, false},      // exactly 5 %
        {6, 100 << 20, 64 * kGb, false}, // exactly 64 GB
        {6, 100 << 20, 64 * kGb - 1, true},
        {0, kGb, 0, false},
    };
    for (const auto &[db_mb, size, second, event] : cases)
        EXPECT_EQ(db_too_large(db_mb, size, second), event) << db_mb << " " << second;
}

using DatabaseThread = fake::TQuietTest;

TEST_F(DatabaseThread, ChecksEachHourAndEveryMinuteUntilThereIsAVolume)
{
    g_system_volume_id = -1;
    fake::g_wall_ms = 1700006400000 - 120000; // 23:58 UTC
    fake::state()->db_size.total_mb = 600;
    sysdb_thread_start();
    fake::pass_waits(0);
    fake::state()->self_conf["OSTRAPRO_SYS_VOL"] = "12";
    fake::pass_waits(3); // 00:01
    fake::state()->usage = {{2, 1, 1, 0, 0, {}}, {12, 10 * kGb, 9 * kGb / 2, 0, 0, {}}};
    fake::state()->auth_result = 1;
    fake::pass_waits(1);
    EXPECT_EQ(fake::state()->programs.size(), 0U);
    fake::state()->auth_result = 0;
    fake::pass_waits(2); // once, at 00:03
    ASSERT_EQ(fake::state()->programs.size(), 1U);
    EXPECT_EQ(fake::state()->programs[0], (fake::argv_t{"/usr/bin/ostra_log_tool", "2", "0x25030003", "-1", "", "",
                                                        "Ostra Surveillance", "DataVol12", "4.500000 GB"}));
    fake::state()->self_conf.clear(); // the id stays
    fake::state()->db_size.total_mb = 1;
    fake::pass_waits(56); // 01:00, which is good for the hour
    fake::state()->db_size.total_mb = 600;
    fake::pass_waits(59);
    EXPECT_EQ(fake::state()->programs.size(), 1U);
    fake::pass_waits(1); // 02:00, and nothing remembers the first one
    EXPECT_EQ(fake::state()->programs.size(), 2U);
    sysdb_thread_stop();
}

} // namespace
