#include "platform/stock/storage/place_look.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

#include "platform/stock/process/call_wait.h"
#include "platform/stop_soon.h"

namespace {

TEST(CallWait, SeesAStopThatComesBetweenTheLookAtTheFlagAndTheWait)
{
    TCallWait wait;
    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop);
    call_waits_wake();
    const auto begin = std::chrono::steady_clock::now();
    wait.wait({}, 5000);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
    EXPECT_EQ(wait.fd(), -1) << "the rest of the grace is slept";
    platform_interrupt_on(nullptr);
}

TEST(PlaceLook, LeavesOneStuckCallBehindAndNeverWaitsForItAgain)
{
    std::atomic<bool> go_on = false;
    std::atomic<int> looks = 0;
    const auto stuck = [&](TPlace *place) {
        ++looks;
        go_on.wait(false);
        place->is_folder = true;
    };
    TPlace place;
    {
        const TStopSoon stop;
        EXPECT_EQ(place_look_by("/a", 3'600'000, stuck, &place), -EINTR);
    }
    EXPECT_EQ(place_look_by("/b", 20, stuck, &place), -ETIMEDOUT);
    EXPECT_EQ(place_look_by("/b", 3'600'000, stuck, &place),
              -ETIMEDOUT);                     // at once: the limit counts from its beginning
    for (int i = 0; i < 500 && looks < 2; ++i) // they may not have begun by their time-out
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(looks, 2);
    EXPECT_FALSE(place.is_folder);
    EXPECT_EQ(place_look_by(
                  "/c", 3'600'000, [](TPlace *seen) { seen->error = ENOENT; }, &place),
              0);
    EXPECT_EQ(place.error, ENOENT);
    EXPECT_EQ(place_look_by(
                  "/c", 3'600'000, [](TPlace *) { throw std::bad_alloc(); }, &place),
              0);
    EXPECT_EQ(place.error, ENOMEM);

    go_on = true;
    go_on.notify_all();
    int result = 0;
    while ((result = place_look_by("/b", 3'600'000, stuck, &place)) == -ETIMEDOUT)
        std::this_thread::yield();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(place_look_by("/a", 3'600'000, stuck, &place), 0); // the one that was begun, or a new one
    EXPECT_TRUE(place.is_folder);
}

} // namespace
