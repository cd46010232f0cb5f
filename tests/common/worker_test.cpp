#include "common/worker.h"

#include <csignal>
#include <gtest/gtest.h>

#include "fake_platform/fake_platform.h"
#include "platform/interrupt.h"

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
        EXPECT_EQ(worker.start({"SYS_HEALTH-worker", "body", body}), 0);
        worker.stop();
        worker.release();
    });
    EXPECT_EQ(told, " body was terminated.\nend wait_for_terminate...\n");
    EXPECT_EQ(g_seen_name, "SYS_HEALTH-work");
    EXPECT_TRUE(g_saw_signal_blocked);
    EXPECT_TRUE(g_was_interrupted);
}

TEST_F(Worker, StoppingOneThatNeverRanOnlyTellsSo)
{
    TWorker worker;
    EXPECT_EQ(fake::stderr_of([&] {
                  worker.stop();
                  worker.release();
              }),
              "end wait_for_terminate...\n");
}

TEST_F(Worker, AnExceptionEndsTheThreadAndNotTheProcess)
{
    TWorker worker;
    const std::string told = fake::stderr_of([&] {
        worker.start({"x", "thrower", [](TWorker *) { throw std::runtime_error("no memory"); }});
        worker.stop();
        worker.release();
    });
    EXPECT_EQ(told, "thrower ended by an exception: no memory\n thrower was terminated.\nend wait_for_terminate...\n");
}

} // namespace
