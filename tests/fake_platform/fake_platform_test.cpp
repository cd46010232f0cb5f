#include "fake_platform/fake_platform.h"

#include <atomic>

#include "common/worker.h"
#include "platform/kestrel.h"
#include "platform/time_stamp.h"

namespace {

class FakePlatform : public fake::TPlatformTest {};

std::atomic<int> g_passes{0};

void count_passes(TWorker *self)
{
    while (!self->terminated()) {
        ++g_passes;
        self->wait_s(60);
    }
}

TEST_F(FakePlatform, WalksAWorkerThroughItsPassesAndLetsItStop)
{
    g_passes = 0;
    const uint64_t start = current_time_stamp_mono();
    TWorker worker;
    ASSERT_EQ(worker.start({"test-worker", "count_passes", count_passes}), 0);
    fake::pass_waits(0);
    EXPECT_EQ(g_passes, 1);
    fake::pass_waits(3);
    EXPECT_EQ(g_passes, 4);
    EXPECT_EQ(current_time_stamp_mono(), start + 180'000);
    EXPECT_EQ(fake::stderr_of([&] { worker.stop(); }), " count_passes was terminated.\nend wait_for_terminate...\n");
    EXPECT_EQ(g_passes, 4);
    worker.release();
}

TEST_F(FakePlatform, GivesTheOutputOfAProgramToTheEnd)
{
    EXPECT_EQ(kestrel_popen("/usr/bin/tool", nullptr), nullptr);
    fake::on_popen([](const fake::argv_t &argv) { return std::optional(argv.at(1)); });
    FILE *stream = kestrel_popen("/usr/bin/tool", "two\nlines", nullptr);
    char text[32] = {};
    EXPECT_EQ(fread(text, 1, sizeof(text), stream), 9U);
    EXPECT_STREQ(text, "two\nlines");
    EXPECT_EQ(kestrel_pclose(stream), 0);
    EXPECT_EQ(fake::programs(), (std::vector<fake::argv_t>{{"/usr/bin/tool"}, {"/usr/bin/tool", "two\nlines"}}));
}

} // namespace
