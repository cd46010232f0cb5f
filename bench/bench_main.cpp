#include "bench.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/host_path.h"
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

/* Without this the monitors' trace lines would be part of the table. */
void silence_stderr()
{
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null >= 0)
        dup2(null, STDERR_FILENO);
}

struct TGroup {
    const char *name;
    void (*run)();
};
constexpr TGroup kOnDaemon[] = {{"memory", bench_memory}, {"dump", bench_dump}, {"routes", bench_routes}};
constexpr TGroup kAlone[] = {{"rounds", bench_rounds}, {"whole", bench_whole}, {"scale", bench_scale}};

/* The requested groups; all of them by default. */
std::vector<TGroup> wanted(std::span<const TGroup> groups, std::span<char *> names)
{
    std::vector<TGroup> found;
    std::copy_if(groups.begin(), groups.end(), std::back_inserter(found), [names](const TGroup &group) {
        return names.empty() || std::find(names.begin(), names.end(), std::string_view(group.name)) != names.end();
    });
    return found;
}

} // namespace

void bench_line(const char *what, double ours, double floor, const char *unit)
{
    const int decimals = floor < 10 ? 2 : 1;
    printf("%-44s %12.*f %12.*f  %-10s %7.3g\n", what, decimals, ours, decimals, floor, unit, ours / floor);
    fflush(stdout);
}

void bench_growth(const char *what, double small, double large, const char *unit, double size_ratio)
{
    printf("%-44s %12.1f %12.1f  %-10s %7.2f\n", what, small, large, unit,
           std::log(large / small) / std::log(size_ratio));
    fflush(stdout);
}

void bench_part(const char *what, double ours, const char *unit)
{
    printf("%-44s %12.2f %12s  %-10s\n", what, ours, "", unit);
    fflush(stdout);
}

double bench_cpu_of(pid_t pid)
{
    double sum_ns = 0;
    std::error_code failed; // a thread may end meanwhile
    for (const auto &thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", failed)) {
        double ns = 0;
        std::ifstream(thread.path() / "schedstat") >> ns;
        sum_ns += ns;
    }
    return sum_ns / 1000;
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

void bench_in_child(void (*body)())
{
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    waitpid(pid, nullptr, 0);
}

int main(int argc, char **argv)
{
    if (argc == 4 && std::string_view(argv[1]) == "--scale") {
        silence_stderr();
        return bench_scale_child(argv[2], std::stoi(argv[3]));
    }
    const std::span<char *> names(argv + 1, static_cast<size_t>(argc - 1));
    const auto on_daemon = wanted(kOnDaemon, names);
    const auto alone = wanted(kAlone, names);
    if (!names.empty() && names.size() != on_daemon.size() + alone.size()) {
        fprintf(stderr, "the groups are: memory dump routes rounds whole scale\n");
        return 2;
    }
    if (host_path("").empty()) {
        fprintf(stderr, "VELOMOND_ROOT names no tree to write into; ./dev bench prepares one\n");
        return 2;
    }
    silence_stderr();
    printf("%-44s %12s %12s  %-10s %7s\n", "", "ours", "floor", "", "ratio");
    fflush(stdout); // the children would print buffered output again
    if (!on_daemon.empty()) {
        const TDaemon daemon;
        for (const TGroup &group : on_daemon)
            group.run();
    }
    for (const TGroup &group : alone)
        group.run();
}
