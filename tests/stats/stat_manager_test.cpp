#include "stats/statManager.h"

#include <array>
#include <gtest/gtest.h>
#include <thread>

#include "fake_platform/fake_platform.h"
#include "stats/memory_record.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_net.h"

namespace {

struct T_RECORD {
    uint64_t count = 0;
    uint64_t level = 0; // not summed

    T_RECORD difference(const T_RECORD &older) const { return {count - older.count, level}; }
    void add(const T_RECORD &element) { *this = {count + element.count, element.level}; }
    void subtract(const T_RECORD &element) { *this = {count - element.count, element.level}; }
};

template <typename T = T_RECORD> class TManager : public TStatManagerBase<T> {
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
        stat_per_minute(*manager.copy_history("cpu2"), [&](const T_RECORD &sum) { points.push_back(sum.count); });
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
    EXPECT_EQ(manager.entries().size(), 1U) << "asking adds none";
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

TEST_F(StatManager, ACounterThatWentBackWrapsAndLeavesTheSumWithItsInterval)
{
    manager.add_sample("cpu2", {100, 0});
    manager.add_sample("cpu2", {90, 0});
    EXPECT_EQ(manager.get_current("cpu2").count, UINT64_MAX - 9);
    for (uint64_t i = 0; i < 90; ++i)
        manager.add_sample("cpu2", {90 + i, 0});
    EXPECT_EQ(manager.get_total("cpu2", 0).count, 89U);
}

TEST_F(StatManager, MinutesAreSixIntervalsFromTheNewestOn)
{
    feed(9); // intervals 1 to 8
    EXPECT_EQ(minutes(), (std::vector<uint64_t>{8 + 7 + 6 + 5 + 4 + 3, 2 + 1}));
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

/* A kind's record: the first so many of its fields are differences in an interval, the others levels. */
template <typename T, size_t COUNTERS, auto... FIELDS> struct T_KIND {
    using T_VALUES = std::array<uint64_t, sizeof...(FIELDS)>;
    static T_VALUES values(const T &record) { return {static_cast<uint64_t>(record.*FIELDS)...}; }
    static T record(const T_VALUES &values)
    {
        T made;
        size_t i = 0;
        ((made.*FIELDS = static_cast<std::remove_reference_t<decltype(made.*FIELDS)>>(values[i++])), ...);
        made.tp_ms = 5;
        return made;
    }
    static T_VALUES reading(uint64_t n) // goes up and down
    {
        T_VALUES values;
        for (size_t i = 0; i < values.size(); ++i)
            values[i] = 7919 * n % 1009 * (i + 1);
        return values;
    }
    static void check()
    {
        TManager<T> manager;
        T_VALUES interval, sum = {};
        for (uint64_t n = 0; n < 200; ++n) {
            manager.add_sample("cpu2", record(reading(n)));
            if (n < 110)
                continue; // only the newest 90 count
            interval = reading(n);
            for (size_t i = 0; i < interval.size(); ++i) {
                interval[i] -= i < COUNTERS ? reading(n - 1)[i] : 0;
                sum[i] += interval[i];
            }
        }
        EXPECT_EQ(values(manager.get_current("cpu2")), values(record(interval)));
        EXPECT_EQ(values(manager.get_total("cpu2", 0)), values(record(sum)));
        EXPECT_EQ(values(manager.get_total("cpu2", 90)), values(record(sum)));
        if constexpr (requires(T one) { one.data_cnt; }) {
            EXPECT_EQ(manager.get_total("cpu2", 0).data_cnt, 90);
        }
        EXPECT_EQ(manager.get_current("cpu2").tp_ms, 5U);
        EXPECT_EQ(manager.get_total("cpu2", 0).tp_ms, 0U) << "is no amount";
    }
};

TEST(StatRecords, TheSumOfAFullHistoryIsThatOfItsParts)
{
    using C = T_CPU_STAT;
    T_KIND<C, 12, &C::cpu_user, &C::cpu_nice, &C::cpu_sys, &C::cpu_idle, &C::cpu_iowait, &C::cpu_steal, &C::cpu_hardirq,
           &C::cpu_softirq, &C::cpu_guest, &C::cpu_guest_nice, &C::cpu_uptime, &C::inv_ms>::check();
    T_KIND<T_NET_STAT, 3, &T_NET_STAT::tx, &T_NET_STAT::rx, &T_NET_STAT::inv_ms>::check();
    using D = T_DISK_STAT;
    T_KIND<D, 8, &D::rd_ios, &D::rd_sec, &D::rd_ticks, &D::wr_ios, &D::wr_sec, &D::wr_ticks, &D::rq_ticks,
           &D::inv_ms>::check();
    using M = T_MEMORY_STAT;
    T_KIND<M, 2, &M::pgmajfault, &M::pgfault, &M::MemTotal, &M::MemUsed, &M::MemFree, &M::MemAvailable, &M::Buffers,
           &M::Cached, &M::SReclaimable, &M::Shmem, &M::SwapTotal, &M::SwapFree, &M::VmRSS, &M::zfs_mem_cache>::check();
}

} // namespace
