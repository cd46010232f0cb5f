#include "common/history.h"

#include <span>
#include <thread>
#include <tuple>

#include "fake_platform/fake_platform.h"
#include "stats/cpu_record.h"
#include "stats/disk_record.h"
#include "stats/memory_record.h"
#include "stats/net_record.h"

namespace {

template <typename T> class TManager : public TStatManagerBase<T> {
public:
    TManager() { TManager::init_map(); }

private:
    void init_map() override { this->track("cpu2"); }
};

TEST(StatManager, TheFirstReadingOnlyPrimesAndAnUntrackedKeyIsRefused)
{
    TManager<T_NET_STAT> manager;
    EXPECT_EQ(manager.add_sample("cpu2", {.tx = 1}), 0);
    EXPECT_EQ(manager.add_sample("cpu3", {.tx = 1}), -1);
    EXPECT_TRUE(manager.copy_history("cpu2")->empty());
    EXPECT_FALSE(manager.copy_history("cpu3").has_value());
    for (const char *key : {"cpu2", "cpu3"}) {
        EXPECT_EQ(manager.get_current(key).tx, 0U);
        EXPECT_EQ(manager.get_total(key, 0).tx, 0U);
        EXPECT_EQ(manager.get_total(key, 2).tx, 0U);
    }
    EXPECT_EQ(manager.keys(), std::vector<std::string>{"cpu2"}) << "readers add no key";
}

TEST(StatManager, ReadersAndTheWriterShareTheHistory) // the thread sanitizer sees whether they may
{
    TManager<T_NET_STAT> manager;
    std::thread writer([&manager] {
        for (uint64_t i = 0; i < 300; ++i)
            manager.add_sample("cpu2", {.tx = i * i}); // each interval is longer than the one before
    });
    for (size_t seen = 0; seen < 90; seen = manager.copy_history("cpu2")->size()) {
        const uint64_t newest = manager.get_current("cpu2").tx;
        EXPECT_GE(manager.get_total("cpu2", 0).tx, newest);
        EXPECT_GE(manager.get_total("cpu2", 1).tx, newest);
    }
    writer.join();
}

/* Fills a kind's history twice over: the first so many of its fields are differences in an interval, the others
 * levels. */
template <typename T, size_t kCounters, auto... kFields> void check_full_history()
{
    TManager<T> manager;
    T last;
    std::vector<T> intervals;
    for (uint64_t n = 0; n < 200; ++n) {
        T reading;
        reading.tp_ms = 5;
        uint64_t value = 7919 * n % 1009; // goes up and down: counters wrap
        ((reading.*kFields = static_cast<uint32_t>(value *= 3)), ...);
        EXPECT_EQ(manager.add_sample("cpu2", reading), 0);
        T &interval = intervals.emplace_back();
        size_t field = 0;
        ((interval.*kFields = reading.*kFields - (field++ < kCounters ? last.*kFields : 0)), ...);
        last = reading;
    }
    const auto figures = [](const T &record) { return std::tuple(record.*kFields...); };
    for (const auto &[asked, summed] : {std::pair(0, 90U), {3, 3U}, {90, 90U}, {1000, 90U}}) {
        T sum;
        for (const T &interval : std::span(intervals).last(summed))
            ((sum.*kFields += interval.*kFields), ...);
        EXPECT_EQ(figures(manager.get_total("cpu2", asked)), figures(sum)) << asked;
    }
    EXPECT_EQ(figures(manager.get_current("cpu2")), figures(intervals.back()));
    EXPECT_EQ(manager.copy_history("cpu2")->size(), 90U);
    EXPECT_EQ(manager.get_minutes("cpu2").count, 15U);
    if constexpr (requires { last.data_cnt; }) {
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
