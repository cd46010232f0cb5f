#pragma once

#include <sys/types.h>
#include <vector>

/* The groups of the benchmark. Each prints its own lines of the table; a figure
 * stands beside its floor from the same run, since only their ratio is portable. */
void bench_rounds();
void bench_requests();
void bench_memory();

/* One line: what, ours, the floor, the unit, ours in relation to the floor. */
void bench_line(const char *what, double ours, double floor, const char *unit);

/* Sleeping processes that end with their owner; the first ones bear the names of
 * the process table. */
class TIdleProcesses {
public:
    explicit TIdleProcesses(int count);
    ~TIdleProcesses();
    TIdleProcesses(const TIdleProcesses &) = delete;
    TIdleProcesses &operator=(const TIdleProcesses &) = delete;

private:
    std::vector<pid_t> m_pids;
};

/* A child process that runs `body` and then sleeps until its owner ends it. */
class TChild {
public:
    explicit TChild(void (*body)());
    ~TChild();
    TChild(const TChild &) = delete;
    TChild &operator=(const TChild &) = delete;
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid;
};
