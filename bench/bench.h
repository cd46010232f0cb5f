#pragma once

#include <algorithm>
#include <ctime>
#include <sys/types.h>
#include <vector>

/* The groups of the benchmark. Each prints its own lines of the table; a figure is shown with its floor from the same
 * run, since only their ratio is portable. */
void bench_memory(); // these three while a TDaemon is up, in this order
void bench_dump();
void bench_routes();
void bench_rounds();
void bench_whole();
void bench_scale();

/* The measuring half of bench_scale, a process of its own. Its exit status. */
int bench_scale_child(const char *kind, int size);

/* One line: what, ours, the floor, the unit, ours in relation to the floor. */
void bench_line(const char *what, double ours, double floor, const char *unit);

/* A figure at two sizes, and how it grows: 1 is as the size does, 0 not at all. */
void bench_growth(const char *what, double small, double large, const char *unit, double size_ratio);

/* A line of /proc/self/smaps_rollup, in MiB. */
double bench_memory_mib(const char *what);

/* A line of what a figure is made of. */
void bench_part(const char *what, double ours, const char *unit);

/* The files of a round, read and closed, the processes gone through once. */
void bench_round_floor();

/* Everything the daemon runs, in this process, its histories full. Once per
 * process. */
class TDaemon {
public:
    TDaemon();
    ~TDaemon();
    TDaemon(const TDaemon &) = delete;
    TDaemon &operator=(const TDaemon &) = delete;
};

/* Queries every route once. */
void bench_ask_all();

/* Sleeping processes that end with their owner; the first ones have the names of the process table. */
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

/* Runs `body` in a child process to its end, so that its heap and its time do not count for this process. */
void bench_in_child(void (*body)());

struct TPair {
    double ours, floor;
};

/* Medians of `count` turns, in each of which both are measured once: a disturbance affects both. */
template <typename TOurs, typename TFloor> TPair bench_medians(int count, TOurs ours, TFloor floor)
{
    std::vector<double> a, b;
    for (int i = 0; i < count; ++i) {
        a.push_back(ours());
        b.push_back(floor());
    }
    std::nth_element(a.begin(), a.begin() + count / 2, a.end());
    std::nth_element(b.begin(), b.begin() + count / 2, b.end());
    return {a[static_cast<size_t>(count) / 2], b[static_cast<size_t>(count) / 2]};
}

/* The CPU time that the threads of a process have taken so far, in microseconds. */
double bench_cpu_of(pid_t pid);

/* The CPU time of this process that a call takes, in microseconds. */
template <typename TWork> double bench_cpu_us(TWork work)
{
    const auto now_us = [] {
        struct timespec now = {};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
    };
    const double start = now_us();
    work();
    return now_us() - start;
}

/* Both as CPU time, with enough turns for a stable median. */
template <typename TOurs, typename TFloor> TPair bench_cpu(TOurs ours, TFloor floor)
{
    constexpr int kTurns = 41;
    return bench_medians(
        kTurns, [&] { return bench_cpu_us(ours); }, [&] { return bench_cpu_us(floor); });
}
