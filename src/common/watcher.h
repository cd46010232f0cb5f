#pragma once

#include "common/worker.h"

/* How a thread that cannot be created is logged. */
struct TStartFailure {
    const char *log; // one of the debug logs
    const char *source, *function;
    int line;
    const char *format = "%s:%s(%d) pthread_create failed (%d)"; // source, function, line, error
};

void start_failure_log(const TStartFailure &failure, int error);

/* The worker thread of a monitor. Its owner alone starts and stops it. */
class TWatcher {
public:
    TWatcher(const TWorkerPlan &plan, const TStartFailure &failure) : m_plan(plan), m_failure(failure) {}

    /* Creates the thread; without one, which is logged, the daemon goes on. Always 0. */
    int start();

    /* Stops the thread and joins it; harmless when there is none. Always 0. */
    int stop();

private:
    TWorkerPlan m_plan;
    TStartFailure m_failure;
    TWorker m_worker;
};
