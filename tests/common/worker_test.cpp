#include "common/worker.h"

#include <csignal>
#include <new>
#include <stdexcept>

#include "fake_platform/fake_platform.h"
#include "platform/interrupt.h"
#include "platform/time_stamp.h"

namespace {

std::string g_seen_name;
bool g_saw_signal_blocked = false;
bool g_was_interrupted = false;

void body(TWorker *self)
{
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof(name));
    g_seen_name = name;
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    g_saw_signal_blocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGSEGV) == 0;
    while (!self->terminated())
        self->wait_s(60);
    g_was_interrupted = platform_interrupted();
}

class Worker : public fake::TPlatformTest {};

TEST_F(Worker, RunsNamedWithoutSignalsAndStopsFromItsSleep)
{
    TWorker worker;
    const std::string told = fake::stderr_of([&] {
        worker.stop(); // it has never run
        EXPECT_EQ(worker.start({"SYS_HEALTH-worker", "body", body}), 0);
        worker.stop();
        worker.stop(); // there is no thread any more
    });
    const std::string ended = "end wait_for_terminate...\n";
    EXPECT_EQ(told, ended + " body was terminated.\n" + ended + ended);
    EXPECT_EQ(g_seen_name, "SYS_HEALTH-work");
    EXPECT_TRUE(g_saw_signal_blocked);
    EXPECT_TRUE(g_was_interrupted);
}

std::vector<std::string> g_passes;

void failing(TWorker *self)
{
    self->run_once([] {
        g_passes.emplace_back("once");
        if (g_passes.size() == 1)
            throw std::runtime_error("no start");
    });
    self->run_passes([self] {
        g_passes.emplace_back("pass");
        if (g_passes.size() == 3) {
            const TMustComplete scope(self);
            throw std::bad_alloc();
        }
        self->wait_s(5);
        if (g_passes.size() == 4)
            throw std::runtime_error("at the stop");
    });
    g_was_interrupted = platform_interrupted(); // calls give up at a stop as before
}

TEST_F(Worker, APassThatThrewIsLoggedAndTheNextOneComesAMinuteLater)
{
    g_passes.clear();
    TWorker worker;
    const std::string told = fake::stderr_of([&] {
        worker.start({"x", "failing", failing});
        const uint64_t start_ms = current_time_stamp();
        fake::pass_waits(0);
        EXPECT_EQ(g_passes.size(), 1U);
        fake::pass_waits(2);
        EXPECT_EQ(current_time_stamp() - start_ms, 120000U);
        worker.stop(); // ends the pass's sleep, and nothing waits for a minute then
    });
    EXPECT_EQ(g_passes, (std::vector<std::string>{"once", "once", "pass", "pass"}));
    EXPECT_EQ(told, "failing: a pass failed: no start\nfailing: a pass failed: std::bad_alloc\n"
                    "failing: a pass failed: at the stop\n failing was terminated.\nend wait_for_terminate...\n");
    EXPECT_TRUE(g_was_interrupted);
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
        worker.pause_s(10);
        EXPECT_EQ(waits, passed_ms < 10'000 ? (std::vector{10, 1}) : std::vector{10});
    }
}

TEST_F(Worker, AnExceptionOutsideOfThePassesEndsTheThreadAndNotTheProcess)
{
    TWorker worker;
    const std::string told = fake::stderr_of([&] {
        worker.start({"x", "thrower", [](TWorker *) { throw std::runtime_error("no memory"); }});
        worker.stop();
    });
    EXPECT_EQ(told, "thrower ended by an exception: no memory\n thrower was terminated.\nend wait_for_terminate...\n");
}

} // namespace
