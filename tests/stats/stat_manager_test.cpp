#include "stats/statManager.h"

#include <gtest/gtest.h>

#include "fake_platform/fake_platform.h"

namespace {

struct T_RECORD {
    uint64_t count = 0;
    uint64_t tp_ms = 0;
    std::string name;

    T_RECORD difference(const T_RECORD &older) const { return {count - older.count, tp_ms, name}; }
    void add(const T_RECORD &element)
    {
        count += element.count;
        name = element.name;
    }
    void subtract(const T_RECORD &element)
    {
        count -= element.count;
        name = element.name;
    }
};

class TManager : public TStatManagerBase<T_RECORD> {
public:
    TManager() { TManager::init_map(); }

private:
    void init_map() override
    {
        track("cpu2");
        track("cpu10");
        track("cpu2"); // once is enough
    }
};

class StatManager : public testing::Test {
protected:
    StatManager() { testing::internal::CaptureStderr(); }
    ~StatManager() override { testing::internal::GetCapturedStderr(); }

    /* Readings 0, 1, 3, 6, ...: the n-th interval counts n. */
    void feed(uint64_t readings)
    {
        for (uint64_t i = 0, sum = 0; i < readings; sum += ++i)
            EXPECT_EQ(manager.add_sample("cpu2", {sum, 1000 * i, "r" + std::to_string(i)}), 0);
    }
    std::vector<uint64_t> minutes()
    {
        std::vector<uint64_t> points;
        stat_per_minute(*manager.copy_history("cpu2"), [&](const T_RECORD &sum) { points.push_back(sum.count); });
        return points;
    }
    TManager manager;
};

TEST_F(StatManager, TheFirstReadingOnlyPrimes)
{
    feed(1);
    EXPECT_TRUE(manager.copy_history("cpu2")->empty());
    EXPECT_EQ(manager.get_current("cpu2").count, 0U);
    EXPECT_EQ(manager.get_total("cpu2", 0).count, 0U);
    EXPECT_TRUE(minutes().empty());
}

TEST_F(StatManager, AnUntrackedKeyIsRefusedAndReadsAsNothing)
{
    EXPECT_EQ(manager.add_sample("cpu3", {1, 1, ""}), -1);
    EXPECT_EQ(manager.get_current("cpu3").count, 0U);
    EXPECT_EQ(manager.get_total("cpu3", 0).count, 0U);
    EXPECT_EQ(manager.get_total("cpu3", 2).count, 0U);
    EXPECT_FALSE(manager.copy_history("cpu3").has_value());
}

TEST_F(StatManager, KeepsTheNewestNinetyIntervalsAndTheirSum)
{
    feed(95); // intervals 1 to 94
    const auto history = *manager.copy_history("cpu2");
    EXPECT_EQ(history.size(), 90U);
    EXPECT_EQ(history.front().count, 5U);
    EXPECT_EQ(history.back().count, 94U);
    EXPECT_EQ(manager.get_total("cpu2", 0).count, 94U * 95 / 2 - 10);
    EXPECT_EQ(manager.get_total("cpu2", 1000).count, 94U * 95 / 2 - 10);
    EXPECT_EQ(manager.get_total("cpu2", 0).tp_ms, 0U);
}

TEST_F(StatManager, SumsTheNewestIntervalsWithTheTailOfTheOldestOfThem)
{
    feed(10);
    EXPECT_EQ(manager.get_total("cpu2", 3).count, 9U + 8 + 7);
    EXPECT_EQ(manager.get_total("cpu2", 3).name, "r7");
    EXPECT_EQ(manager.get_total("cpu2", 3).tp_ms, 0U);
    EXPECT_EQ(manager.get_total("cpu2", 1).count, manager.get_current("cpu2").count);
    EXPECT_EQ(manager.get_current("cpu2").tp_ms, 9000U);
}

TEST_F(StatManager, ACounterThatWentBackWrapsAndLeavesTheSumWithItsInterval)
{
    manager.add_sample("cpu2", {100, 0, ""});
    manager.add_sample("cpu2", {90, 0, ""});
    EXPECT_EQ(manager.get_current("cpu2").count, UINT64_MAX - 9);
    for (uint64_t i = 0; i < 90; ++i)
        manager.add_sample("cpu2", {90 + i, 0, ""});
    EXPECT_EQ(manager.get_total("cpu2", 0).count, 89U);
}

TEST_F(StatManager, MinutesAreSixIntervalsFromTheNewestOn)
{
    feed(9); // intervals 1 to 8
    EXPECT_EQ(minutes(), (std::vector<uint64_t>{8 + 7 + 6 + 5 + 4 + 3, 2 + 1}));
    feed(91);
    EXPECT_EQ(minutes().size(), 15U);
}

TEST(StatManagerTrace, TellsConstructionAndEachEntryInKeyOrder)
{
    EXPECT_EQ(fake::stderr_of([] { const TManager manager; }), "statManager.h:TStatManagerBase(57)\n"
                                                               "statManager.h:~TStatManagerBase(64)\n"
                                                               "~TStatManagerBase, delete=[cpu10]\n"
                                                               "~TStatManagerBase, delete=[cpu2]\n");
}

} // namespace
