#include "platform/stock/storage/place_look.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <latch>
#include <semaphore>
#include <stdexcept>
#include <thread>

#include "platform/raw_socket.h"
#include "platform/stock_root.h"
#include "platform/stop_soon.h"

namespace {

TEST(CallWait, SeesAStopThatComesBetweenTheLookAtTheFlagAndTheWait)
{
    TCallWait wait;
    const std::atomic<bool> stop = true;
    platform_interrupt_on(&stop);
    call_waits_wake();
    const TAtMost limit(4000);
    wait.wait({}, 5000);
    platform_interrupt_on(nullptr);
}

TEST(PlaceLook, LeavesOneStuckCallBehindAndNeverWaitsForItAgain)
{
    std::counting_semaphore<> begun{0};
    std::latch held{1};
    const auto stuck = [&](TPlace *place) {
        begun.release();
        held.wait();
        place->is_folder = true;
    };
    TPlace place;
    const auto look = [&place](const char *path, const std::function<void(TPlace *)> &work) {
        return place_look_by(path, 3'600'000, work, &place);
    };
    {
        const TStopSoon stop;
        EXPECT_EQ(look("/a", stuck), -EINTR);
    }
    EXPECT_EQ(place_look_by("/b", 20, stuck, &place), -ETIMEDOUT);
    EXPECT_EQ(look("/b", stuck), -ETIMEDOUT); // its limit counts from its beginning
    begun.acquire();
    begun.acquire(); // perhaps only after its time-out
    EXPECT_FALSE(begun.try_acquire());
    EXPECT_FALSE(place.is_folder);
    EXPECT_EQ(look("/c", [](TPlace *seen) { (void)pthread_getname_np(pthread_self(), seen->real, 16); }), 0);
    EXPECT_STREQ(place.real, "PLACE-look");
    EXPECT_EQ(look("/c", [](TPlace *) { throw std::bad_alloc(); }), 0);
    EXPECT_EQ(place.error, ENOMEM);

    held.count_down();
    int result = 0;
    while ((result = look("/b", stuck)) == -ETIMEDOUT)
        std::this_thread::yield();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(look("/a", stuck), 0); // the one that was begun, or a new one
    EXPECT_TRUE(place.is_folder);

    g_stock_root.folder("/place");
    g_stock_root.link("place", "/linked");
    EXPECT_EQ(place_look("/linked", &place), 0);
    EXPECT_EQ(place.real, g_stock_root.real("/place"));
}

} // namespace
