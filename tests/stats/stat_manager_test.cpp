#include "stats/statManager.h"

#include <gtest/gtest.h>

namespace {

struct T_RECORD {
    uint64_t count = 0;
    uint64_t level = 0; // not summed

    T_RECORD difference(const T_RECORD &older) const { return {count - older.count, level}; }
    void add(const T_RECORD &element) { *this = {count + element.count, element.level}; }
    void subtract(const T_RECORD &element) { *this = {count - element.count, element.level}; }
};

class TManager : public TStatManagerBase<T_RECORD> {
public:
    TManager() { TManager::init_map(); }

private:
    void init_map() override { track("cpu2"); }
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
    TManager manager;
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

} // namespace
