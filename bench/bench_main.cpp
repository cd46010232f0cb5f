#include "bench.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "stats/process_table.h"

namespace {

[[noreturn]] void sleep_for_ever(pid_t owner)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != owner)
        _exit(0);
    for (;;)
        pause();
}

void end(pid_t pid)
{
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

/* The monitors' trace lines would be part of the table otherwise. */
void silence_stderr()
{
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0)
        dup2(null, STDERR_FILENO);
}

struct T_GROUP {
    const char *name;
    void (*run)();
};
constexpr T_GROUP kGroups[] = {{"memory", bench_memory}, {"rounds", bench_rounds}, {"requests", bench_requests}};

} // namespace

void bench_line(const char *what, double ours, double floor, const char *unit)
{
    if (floor > 0)
        printf("%-44s %12.1f %12.1f  %-10s %6.2f\n", what, ours, floor, unit, ours / floor);
    else
        printf("%-44s %12.1f %12s  %-10s\n", what, ours, "-", unit);
    fflush(stdout);
}

TIdleProcesses::TIdleProcesses(int count)
{
    const pid_t owner = getpid();
    for (int i = 0; i < count; ++i) {
        const pid_t pid = fork();
        if (pid < 0)
            break;
        if (pid == 0) {
            if (static_cast<size_t>(i) < kProcessTable.size())
                prctl(PR_SET_NAME, kProcessTable[static_cast<size_t>(i)]);
            sleep_for_ever(owner);
        }
        m_pids.push_back(pid);
    }
}

TIdleProcesses::~TIdleProcesses()
{
    for (const pid_t pid : m_pids)
        end(pid);
}

TChild::TChild(void (*body)())
{
    const pid_t owner = getpid();
    m_pid = fork();
    if (m_pid == 0) {
        body();
        sleep_for_ever(owner);
    }
}

TChild::~TChild()
{
    end(m_pid);
}

int main(int argc, char **argv)
{
    const std::string_view only = argc > 1 ? argv[1] : "";
    silence_stderr();
    printf("%-44s %12s %12s  %-10s %6s\n", "", "ours", "floor", "", "ratio");
    for (const T_GROUP &group : kGroups) {
        if (only.empty() || only == group.name)
            group.run();
    }
}
