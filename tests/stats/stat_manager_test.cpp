#include "common/history.h"

#include <thread>
#include <tuple>

#include "fake_platform/fake_platform.h"
#include "stats/cpu_record.h"
#include "stats/disk_record.h"
#include "stats/memory_record.h"
#include "stats/net_record.h"
#include "stats/stat_kind.h"

namespace {

struct TRecord {
    uint64_t count = 0;
    uint64_t level = 0; // not summed

    TRecord difference(const TRecord &older) const { return {count - older.count, level}; }
    void add(const TRecord &element) { *this = {count + element.count, element.level}; }
    void subtract(const TRecord &element) { *this = {count - element.count, element.level}; }
};

template <typename T = TRecord> class TManager : public TStatManagerBase<T> {
public:
    TManager() { TManager::init_map(); }

private:
    void init_map() override { this->track("cpu2"); }
};

class StatManager : public testing::Test {
protected:
    /* Readings 0, 1, 3, 6, ...: the n-th interval counts n. */
    void feed(uint64_t readings)
    {
        for (uint64_t i = 0, sum = 0; i < readings; sum += ++i)
            EXPECT_EQ(manager.add_sample("cpu2", {sum, i}), 0);
    }
    std::vector<uint64_t> minutes()
    {
        std::vector<uint64_t> points;
        for (const auto all = manager.get_minutes("cpu2"); const TRecord &sum : all.all())
            points.push_back(sum.count);
        return points;
    }
    TManager<> manager;
};

TEST_F(StatManager, TheFirstReadingOnlyPrimesAndAnUntrackedKeyIsRefused)
{
    feed(1);
    EXPECT_EQ(manager.add_sample("cpu3", {1, 1}), -1);
    EXPECT_TRUE(manager.copy_history("cpu2")->empty());
    EXPECT_FALSE(manager.copy_history("cpu3").has_value());
    for (const char *key : {"cpu2", "cpu3"}) {
        EXPECT_EQ(manager.get_current(key).count, 0U);
        EXPECT_EQ(manager.get_total(key, 0).count, 0U);
        EXPECT_EQ(manager.get_total(key, 2).count, 0U);
    }
    EXPECT_EQ(manager.keys(), std::vector<std::string>{"cpu2"}) << "readers add no key";
}

TEST_F(StatManager, KeepsTheNewestNinetyIntervalsAndTheirSums)
{
    feed(95); // intervals 1 to 94
    EXPECT_EQ(manager.copy_history("cpu2")->size(), 90U);
    EXPECT_EQ(manager.get_current("cpu2").count, 94U);
    for (const int all : {0, 90, 1000})
        EXPECT_EQ(manager.get_total("cpu2", all).count, 94U * 95 / 2 - 10);
    EXPECT_EQ(manager.get_total("cpu2", 3).count, 94U + 93 + 92);
    EXPECT_EQ(manager.get_total("cpu2", 3).level, 92U) << "of the oldest one";
    EXPECT_EQ(minutes().size(), 15U);
}

TEST_F(StatManager, ReadersAndTheWriterShareTheHistory) // the thread sanitizer sees whether they may
{
    std::thread writer([this] { feed(300); });
    for (size_t seen = 0; seen < 90; seen = manager.copy_history("cpu2")->size()) {
        const uint64_t newest = manager.get_current("cpu2").count;
        EXPECT_GE(manager.get_total("cpu2", 0).count, newest);
        EXPECT_GE(manager.get_total("cpu2", 1).count, newest);
    }
    writer.join();
}

/* Fills a kind's history twice over: the first so many of its fields are differences in an interval, the others
 * levels. */
template <typename T, size_t kCounters, auto... kFields> void check_full_history()
{
    TManager<T> manager;
    T last, interval, sum;
    for (uint64_t n = 0; n < 200; ++n) {
        T reading;
        reading.tp_ms = 5;
        uint64_t value = 7919 * n % 1009; // goes up and down: counters wrap
        ((reading.*kFields = static_cast<uint32_t>(value *= 3)), ...);
        manager.add_sample("cpu2", reading);
        size_t field = 0;
        ((interval.*kFields = reading.*kFields - (field++ < kCounters ? last.*kFields : 0)), ...);
        if (n >= 110) // only the newest 90 count
            ((sum.*kFields += interval.*kFields), ...);
        last = reading;
    }
    for (const int all : {0, 90})
        EXPECT_EQ(std::tuple(manager.get_total("cpu2", all).*kFields...), std::tuple(sum.*kFields...));
    EXPECT_EQ(std::tuple(manager.get_current("cpu2").*kFields...), std::tuple(interval.*kFields...));
    if constexpr (requires { sum.data_cnt; }) {
        EXPECT_EQ(manager.get_total("cpu2", 0).data_cnt, 90);
    }
    EXPECT_EQ(manager.get_current("cpu2").tp_ms, 5U);
    EXPECT_EQ(manager.get_total("cpu2", 0).tp_ms, 0U) << "is no amount";
}

TEST(StatRecords, TheSumOfAFullHistoryIsThatOfItsParts)
{
    using TCpu = T_CPU_STAT;
    check_full_history<TCpu, 12, &TCpu::cpu_user, &TCpu::cpu_nice, &TCpu::cpu_sys, &TCpu::cpu_idle, &TCpu::cpu_iowait,
                       &TCpu::cpu_steal, &TCpu::cpu_hardirq, &TCpu::cpu_softirq, &TCpu::cpu_guest,
                       &TCpu::cpu_guest_nice, &TCpu::cpu_uptime, &TCpu::inv_ms>();
    check_full_history<T_NET_STAT, 3, &T_NET_STAT::tx, &T_NET_STAT::rx, &T_NET_STAT::inv_ms>();
    using TDisk = T_DISK_STAT;
    check_full_history<TDisk, 8, &TDisk::rd_ios, &TDisk::rd_sec, &TDisk::rd_ticks, &TDisk::wr_ios, &TDisk::wr_sec,
                       &TDisk::wr_ticks, &TDisk::rq_ticks, &TDisk::inv_ms>();
    using TMemory = T_MEMORY_STAT;
    check_full_history<TMemory, 2, &TMemory::pgmajfault, &TMemory::pgfault, &TMemory::MemTotal, &TMemory::MemUsed,
                       &TMemory::MemFree, &TMemory::MemAvailable, &TMemory::Buffers, &TMemory::Cached,
                       &TMemory::SReclaimable, &TMemory::Shmem, &TMemory::SwapTotal, &TMemory::SwapFree,
                       &TMemory::VmRSS, &TMemory::zfs_mem_cache>();
}

} // namespace
