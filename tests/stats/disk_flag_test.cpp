#include "stats/disk_flag.h"

#include <future>
#include <thread>

#include "fake_platform/fake_platform.h"

namespace {

using fake::state;

class DiskFlag : public fake::TPlatformTest {
protected:
    static void set_disks(const std::vector<int32_t> &statuses, uint32_t result = 0)
    {
        state()->disk_list = [=](int, t_storage_disk_list &out) {
            for (const int32_t status : statuses)
                out.disks.push_back({"disk_01", "", "", status});
            return result;
        };
    }
};

TEST_F(DiskFlag, EveryStepRunsWhateverBecameOfThoseBefore)
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
        {"neither", 3, 7, {0}, 0, 0, -2, 0, 0},
        {"unreadable record", 0, 0, {0}, 0, -5, 0, 1, 0},
    };
    int announced = 0;
    for (const auto &one : cases) {
        SCOPED_TRACE(one.name);
        state()->auth_result = one.auth;
        state()->storage_flag = one.setting;
        state()->shm_get_result = one.shm_get;
        state()->shm = {77, 77, 77};
        set_disks(one.disks, one.list);
        EXPECT_EQ(disk_flag_update(), one.result);
        EXPECT_EQ(state()->shm.disk_present, one.present);
        EXPECT_EQ(state()->shm.reserved, 0);
        EXPECT_EQ(state()->shm.storage_setting, one.written_setting);
        EXPECT_EQ(disk_flag_present(), one.present);
        EXPECT_EQ(state()->ostra_open, 0);
        ASSERT_EQ(state()->notices.size(), static_cast<size_t>(++announced));
        const fake::T_NOTICE notice = state()->notices.back();
        EXPECT_EQ(notice.session, "VeloMond");
        EXPECT_EQ(notice.category, 14);
        EXPECT_EQ(notice.code, 14001);
        EXPECT_EQ(notice.text, "");
        EXPECT_EQ(notice.level, 5);
    }
}

TEST_F(DiskFlag, AnUpdateThatWasOvertakenDoesNotBringItsOldNewsBack)
{
    std::promise<void> asked, overtaken;
    std::atomic<bool> slow{true};
    state()->storage_flag = 0;
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
    state()->storage_flag = 4;
    EXPECT_EQ(disk_flag_update(), 0); // would hang if the first held a lock meanwhile
    state()->storage_flag = 0;
    overtaken.set_value();
    worker.join();
    EXPECT_EQ(state()->shm_sets, 2);
    EXPECT_EQ(state()->shm.disk_present, 0);
    EXPECT_EQ(state()->shm.storage_setting, 4);
    EXPECT_EQ(disk_flag_present(), 0);
}

TEST_F(DiskFlag, TheWorkerUpdatesAtEveryTenthMinuteOfLocalTime)
{
    setenv("TZ", "TST-05:45", 1); // 22:13:20 is 3:58:20 there
    set_disks({0});
    const std::string told = fake::stderr_of([] {
        ASSERT_EQ(disk_thread_start(), 0);
        fake::pass_waits(1);
        EXPECT_EQ(state()->notices.size(), 0U);
        fake::pass_waits(1); // 4:00
        EXPECT_EQ(state()->notices.size(), 1U);
        fake::pass_waits(10); // 4:10
        EXPECT_EQ(state()->notices.size(), 2U);
        disk_thread_stop();
    });
    EXPECT_EQ(told, " disk_monitor_main was terminated.\nend wait_for_terminate...\n");
}

} // namespace
