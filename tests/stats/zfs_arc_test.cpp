#include "stats/zfs_arc.h"

#include "fake_platform/fake_platform.h"

namespace {

constexpr uint64_t kGb = 1U << 20; // in kB

TEST(ZfsArc, IsNeverCountedAsFreeBelowItsMinimum)
{
    const std::tuple<TArc, uint64_t, uint64_t> cases[] = {
        {{8 * kGb, 6 * kGb, 4 * kGb}, 4 * kGb, 4 * kGb}, // what is in use lies below the minimum
        {{8 * kGb, 2 * kGb, 4 * kGb}, 2 * kGb, 6 * kGb}, // above it
        {{3 * kGb, 2 * kGb, 4 * kGb}, 0, 3 * kGb},
        {{1, 9, 0}, 9, 0}, // more evictable than there is
    };
    for (const auto &[arc, reclaimable_kb, cache_kb] : cases) {
        const TArcShare share = zfs_arc_share(arc);
        EXPECT_EQ(std::tie(share.reclaimable_kb, share.cache_kb), std::tie(reclaimable_kb, cache_kb)) << arc.size_kb;
    }
}

class ZfsArcTool : public fake::TPlatformTest {
protected:
    ZfsArcTool() { fake::g_mono_ms = 5; } // just after the boot
    TArc read_of(const std::optional<std::string> &text)
    {
        fake::state()->popen = [text](const fake::argv_t &) { return text; };
        return cache.read(&ran_tool);
    }
    TArcCache cache;
    bool ran_tool = false;
};

TEST_F(ZfsArcTool, IsAskedOnceInThirtySeconds)
{
    EXPECT_EQ(read_of("8192\n4096\n2048\n").size_kb, 8U);
    EXPECT_EQ(fake::state()->programs,
              (std::vector<fake::argv_t>{{"/usr/sbin/sysctl", "-n", "kstat.zfs.misc.arcstats.size",
                                          "kstat.zfs.misc.arcstats.evictable", "kstat.zfs.misc.arcstats.c_min"}}));
    fake::advance_ms(29999);
    EXPECT_EQ(read_of("1024\n0\n0\n").min_kb, 2U);
    EXPECT_FALSE(ran_tool);
    fake::advance_ms(1);
    EXPECT_EQ(read_of("1024\n0\n0\n").size_kb, 1U);
    fake::advance_ms(30000);
    EXPECT_EQ(read_of(std::nullopt).size_kb, 0U) << "old figures are not answered";
}

TEST_F(ZfsArcTool, FiguresBehindABadLineAreZeroAndNothingIsKept)
{
    const std::pair<std::optional<std::string>, std::tuple<uint64_t, uint64_t, uint64_t>> cases[] = {
        {"8192\n4096\n", {8, 4, 0}},
        {"8192\nwhat\n2048\n", {8, 0, 0}},
        {"\n4096\n2048\n", {0, 0, 0}},
        {std::nullopt, {0, 0, 0}},
        {std::string(1 << 20, 'x'), {0, 0, 0}},
        {std::string(63, '0') + "8192\n", {0, 8, 0}}, // a line ends after 63 characters
    };
    for (const auto &[text, size_evictable_min] : cases) {
        const TArc arc = read_of(text);
        EXPECT_EQ(std::tie(arc.size_kb, arc.evictable_kb, arc.min_kb), size_evictable_min)
            << text.value_or("none").substr(0, 80);
    }
    EXPECT_EQ(fake::state()->programs.size(), std::size(cases)) << "every round asks again";
}

} // namespace
