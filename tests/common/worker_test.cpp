#include "common/worker.h"

#include <atomic>
#include <csignal>
#include <fstream>
#include <new>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include "base/startup_pages.h"
#include "common/stop_watch.h"
#include "common/tick.h"
#include "fake_platform/fake_platform.h"
#include "platform/interrupt.h"
#include "platform/time_stamp.h"

namespace {

std::vector<std::string> g_seen; // by the bodies

void body(TWorker *self)
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    g_seen.emplace_back(sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGSEGV) == 0 ? "undisturbed" : "");
    while (!self->terminated())
        self->wait_s(60);
    g_seen.emplace_back(platform_interrupted() ? "interrupted" : "");
}

class Worker : public fake::TPlatformTest {
protected:
    Worker() { g_seen.clear(); }
};

TEST_F(Worker, RunsWithoutSignalsAndStopsFromItsSleep)
{
    TWorker worker;
    const std::string told = fake::stderr_of([&] {
        worker.stop(); // it has never run
        EXPECT_EQ(worker.start({"x", "body", body}), 0);
        worker.stop();
        worker.stop(); // there is no thread any more
    });
    worker.release();
    const std::string ended = "end wait_for_terminate...\n";
    EXPECT_EQ(told, ended + " body was terminated.\n" + ended + ended);
    EXPECT_EQ(g_seen, (std::vector<std::string>{"undisturbed", "interrupted"}));
}

void failing(TWorker *self)
{
    self->run_once([] {
        g_seen.emplace_back("once");
        if (g_seen.size() == 1)
            throw std::runtime_error("no start");
    });
    self->run_passes([self] {
        g_seen.emplace_back("pass");
        if (g_seen.size() == 3) {
            const TMustComplete scope(self);
            throw std::bad_alloc();
        }
        self->wait_s(5);
        if (g_seen.size() == 4)
            throw std::runtime_error("at the stop");
    });
    g_seen.emplace_back(platform_interrupted() ? "interrupted" : ""); // calls give up at a stop as before
    throw std::runtime_error("outside of the passes");                // ends the thread and not the process
}

TEST_F(Worker, APassThatThrewIsLoggedAndTheNextOneComesAMinuteLater)
{
    TWorker worker;
    const std::string told = fake::stderr_of([&] {
        worker.start({"x", "failing", failing});
        const uint64_t start_ms = current_time_stamp();
        fake::pass_waits(0);
        EXPECT_EQ(g_seen.size(), 1U);
        fake::pass_waits(2);
        EXPECT_EQ(current_time_stamp() - start_ms, 120000U);
        worker.stop(); // ends the pass's sleep, and nothing waits for a minute then
    });
    worker.release();
    EXPECT_EQ(g_seen, (std::vector<std::string>{"once", "once", "pass", "pass", "interrupted"}));
    EXPECT_EQ(told, "failing: a pass failed: no start\nfailing: a pass failed: std::bad_alloc\n"
                    "failing: a pass failed: at the stop\nfailing ended by an exception: outside of the passes\n"
                    " failing was terminated.\nend wait_for_terminate...\n");
}

TEST_F(Worker, APauseIsNeverShorterAlthoughAWaitMayBe)
{
    for (const uint64_t passed_ms : {9'001U, 10'000U}) {
        std::vector<int> waits;
        fake::on_wait([&](vos_cond_t * /*cond*/, int seconds) {
            fake::advance_ms(waits.empty() ? passed_ms : 1000);
            waits.push_back(seconds);
        });
        TWorker worker;
        worker.prepare();
        worker.pause_s(10);
        worker.release();
        EXPECT_EQ(waits, passed_ms < 10'000 ? (std::vector{10, 1}) : std::vector{10});
    }
}

TEST_F(Worker, ATickWakesThoseWithSomethingDueAndWithoutTicksEachLooksItself)
{
    TWorker worker;
    worker.prepare();
    std::vector<std::string> seen;
    const auto wait = [&](bool is_due, void (*meanwhile)()) {
        fake::on_wait([&](vos_cond_t *cond, int seconds) {
            meanwhile();
            seen.push_back(std::to_string(seconds) + (cond->signalled ? " woken" : " asleep"));
        });
        worker.wait_due([is_due] { return is_due; });
    };
    wait(true, [] {});
    wait(false, tick_run);
    wait(false, tick_run);
    wait(true, tick_run);
    tick_run(); // the worker does not wait
    wait(false, tick_run);
    wait(false, tick_end);
    wait(true, [] {});
    worker.release();
    EXPECT_EQ(seen, (std::vector<std::string>{"1 asleep", "1 asleep", "10 asleep", "10 woken", "10 asleep", "10 woken",
                                              "1 asleep"}));
}

TEST_F(Worker, ATickThatComesLateEndsNoOtherWait)
{
    TWorker worker;
    worker.prepare();
    std::atomic<bool> is_done{false};
    int waits = 0;
    fake::on_wait([&](vos_cond_t * /*cond*/, int seconds) { seconds == 5 ? ++waits : usleep(10); });
    std::thread ticks([&] {
        while (!is_done)
            tick_run();
    });
    for (int i = 0; i < 300; ++i) {
        worker.wait_due([] { return usleep(10) == 0; });
        worker.wait_s(5);
    }
    is_done = true;
    ticks.join();
    tick_end();
    worker.release();
    EXPECT_EQ(waits, 300);
}

TEST_F(Worker, AStopIsAlsoDoneWhereNothingCanWatchIt)
{
    fake::state()->thread_error = 11;
    EXPECT_EQ(fake::stderr_of(stop_watch_begin), "the stop is not watched: pthread_create failed (11)\n");
    stop_watch_step("service");
    EXPECT_EQ(fake::state()->alarms, 0);
    stop_watch_end();
    fake::state()->thread_error = 0;
    stop_watch_begin();
    stop_watch_step("service");
    stop_watch_end();
    EXPECT_EQ(fake::state()->alarms, 1);
}

TEST(StartupPages, AreGivenBackToTheCacheOfTheirFiles)
{
    uint64_t before = 0, after = 0; // the third number: pages of files
    std::ifstream("/proc/self/statm") >> before >> before >> before;
    release_startup_pages();
    std::ifstream("/proc/self/statm") >> after >> after >> after;
    EXPECT_LT(after, before / 3 * 2); // a tenth to a third is left
}

} // namespace
