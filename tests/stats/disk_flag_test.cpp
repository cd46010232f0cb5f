#include "stats/disk_flag.h"

#include <future>
#include <thread>

#include "fake_platform/fake_platform.h"

namespace {

using fake::state;

class DiskFlag : public fake::TPlatformTest {};

TEST_F(DiskFlag, AStepThatFailsDoesNotStopTheOthers)
{
    struct {
        const char *name;
        uint32_t auth, list;
        std::vector<int32_t> disks;
        std::optional<int> setting;
        int shm_get;
        int result, present, written_setting;
    } const cases[] = {
        {"one good among empty slots", 0, 0, {-1, 0}, 0, 0, 0, 1, 0},
        {"a disk in error is there", 0, 0, {2}, 5, 0, 0, 1, 5},
        {"empty slots only", 0, 0, {-1, -2}, 1, 0, 0, 0, 1},
        {"no slot", 0, 0, {}, std::nullopt, 0, 0, 0, 1},
        {"no credentials", 3, 0, {0}, 0, 0, -1, 1, 0},
        {"no list", 0, 7, {0}, 0, 0, -2, 0, 0},
        {"neither", 3, 7, {0}, 0, -5, -2, 0, 0},
    };
    size_t announced = 0;
    for (const auto &one : cases) {
        SCOPED_TRACE(one.name);
        state()->auth_result = one.auth;
        state()->storage_flag = one.setting;
        state()->shm_get_result = one.shm_get;
        state()->shm = {77, 77, 77};
        state()->disk_list = [&one](int, t_storage_disk_list &out) {
            for (const int32_t status : one.disks)
                out.disks.push_back({"disk_01", "", "", status});
            return one.list;
        };
        EXPECT_EQ(disk_flag_update(), one.result);
        const t_velomond_shm written = state()->shm;
        EXPECT_EQ(std::tie(written.disk_present, written.reserved, written.storage_setting),
                  std::tuple(one.present, 0, one.written_setting));
        EXPECT_EQ(state()->ostra_open, 0);
        ASSERT_EQ(state()->notices.size(), ++announced);
        EXPECT_EQ(state()->notices.back(), "VeloMond 14 14001 [] 5");
    }
}

TEST_F(DiskFlag, AnUpdateThatWasOvertakenDoesNotRestoreStaleData)
{
    std::promise<void> asked, overtaken;
    std::atomic<bool> slow{true};
    state()->disk_list = [&](int, t_storage_disk_list &out) {
        if (slow.exchange(false)) {
            asked.set_value();
            overtaken.get_future().wait();
            out.disks.resize(1);
        }
        return 0U;
    };
    std::thread worker([] { EXPECT_EQ(disk_flag_update(), 0); });
    asked.get_future().wait();
    EXPECT_EQ(disk_flag_update(), 0); // would hang if the first held a lock meanwhile
    overtaken.set_value();
    worker.join();
    EXPECT_EQ(state()->shm_sets, 2);
    EXPECT_EQ(state()->shm.disk_present, 0);
    EXPECT_EQ(disk_flag_present(), 0);
}

TEST_F(DiskFlag, TheWorkerUpdatesAtEveryTenthMinuteOfLocalTime)
{
    setenv("TZ", "TST-05:45", 1); // 22:13:20 is 3:58:20 there
    disk_thread_start();
    fake::pass_waits(1, "DISK-worker");
    EXPECT_EQ(state()->notices.size(), 0U);
    fake::pass_waits(1); // 4:00
    EXPECT_EQ(state()->notices.size(), 1U);
    fake::pass_waits(10); // 4:10
    EXPECT_EQ(state()->notices.size(), 2U);
    EXPECT_EQ(fake::stderr_of(disk_thread_stop), " disk_monitor_main was terminated.\nend wait_for_terminate...\n");
}

} // namespace
