#include "bench.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bare_server.h"
#include "base/fd.h"
#include "platform/host_path.h"
#include "stats/process_table.h"

namespace {

constexpr unsigned kSettleS = 25, kWindowS = 10;
constexpr int kWindows = 6;
constexpr ptrdiff_t kProcesses = 115; // as many as a small appliance has
constexpr uint16_t kHubPort = 10182, kExporterPort = 10100;

/* A program that runs until its owner ends it. */
class TProgram {
public:
    explicit TProgram(std::vector<std::string> words)
    {
        std::vector<char *> argv(words.size() + 1); // the last one stays null
        std::transform(words.begin(), words.end(), argv.begin(), [](std::string &word) { return word.data(); });
        const pid_t owner = getpid();
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(STDERR_FILENO, STDOUT_FILENO); // which goes nowhere
            if (getppid() == owner)
                execv(argv[0], argv.data());
            _exit(127);
        }
    }
    ~TProgram()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    TProgram(const TProgram &) = delete;
    TProgram &operator=(const TProgram &) = delete;

    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid;
};

/* Once in ten seconds, with everything cold, as the daemon's round is. */
void floor_for_ever()
{
    for (;;) {
        bench_round_floor();
        sleep(kWindowS);
    }
}

void serve_hub()
{
    bare_server_start(kHubPort, "{}", 2);
}

/* The same figures as ours: processor, memory, paging, network, disks, our table of
 * processes. Nothing is written anywhere. */
std::vector<std::string> collectd_command()
{
    const std::string folder = host_path("/tmp/collectd"), config = folder + "/collectd.conf";
    std::filesystem::create_directories(folder);
    std::ofstream text(config);
    text << "Hostname \"bench\"\nBaseDir \"" << folder << "\"\nPIDFile \"" << folder << "/pid\"\nInterval 10\n"
         << "TypesDB \"/usr/share/collectd/types.db\"\nReadThreads 1\nWriteThreads 1\n";
    for (const char *plugin : {"cpu", "memory", "vmem", "interface", "disk", "processes"})
        text << "LoadPlugin " << plugin << '\n';
    text << "<Plugin processes>\n";
    for (const char *name : kProcessTable)
        text << "Process \"" << name << "\"\n";
    text << "</Plugin>\n";
    return {"/usr/sbin/collectd", "-f", "-C", config};
}

std::vector<std::string> exporter_command()
{
    std::vector<std::string> words = {"/usr/bin/prometheus-node-exporter",
                                      "--web.listen-address=127.0.0.1:" + std::to_string(kExporterPort),
                                      "--collector.disable-defaults"};
    for (const char *collector : {"cpu", "meminfo", "vmstat", "netdev", "diskstats", "processes"})
        words.push_back(std::string("--collector.") + collector);
    return words;
}

std::unique_ptr<TProgram> if_installed(std::vector<std::string> command)
{
    return access(command[0].c_str(), X_OK) == 0 ? std::make_unique<TProgram>(std::move(command)) : nullptr;
}

void scrape()
{
    const TFd peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(kExporterPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    constexpr std::string_view kRequest = "GET /metrics HTTP/1.0\r\n\r\n";
    if (connect(peer.get(), reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) != 0 ||
        send(peer.get(), kRequest.data(), kRequest.size(), MSG_NOSIGNAL) < 0)
        return;
    char buffer[4096];
    while (recv(peer.get(), buffer, sizeof(buffer), 0) > 0) {
    }
}

/* CPU time by the names of the threads, in microseconds. */
std::map<std::string, double> threads_of(pid_t pid)
{
    std::map<std::string, double> times;
    std::error_code failed;
    for (const auto &thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", failed)) {
        std::string name;
        double ns = 0;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        std::ifstream(thread.path() / "schedstat") >> ns;
        times[name] += ns / 1000;
    }
    return times;
}

/* One who is measured: its CPU time in each window. */
struct TMeasured {
    pid_t pid;
    std::vector<double> windows_us = {};

    double median_ms()
    {
        const auto middle = windows_us.begin() + kWindows / 2;
        std::nth_element(windows_us.begin(), middle, windows_us.end());
        return *middle / 1000;
    }
};

ptrdiff_t count_processes()
{
    return std::ranges::count_if(std::filesystem::directory_iterator("/proc"), [](const auto &entry) {
        return isdigit(entry.path().filename().native().front()) != 0;
    });
}

std::string daemon_path()
{
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "src" / "VeloMond";
}

void measure(const char *what, bool hub_present)
{
    const auto hub = hub_present ? std::make_unique<TChild>(serve_hub) : nullptr;
    const TProgram daemon({daemon_path()});
    const TChild floor_loop(floor_for_ever);
    const auto collectd = if_installed(collectd_command());
    const auto exporter = if_installed(exporter_command());
    sleep(kSettleS);

    TMeasured ours = {daemon.pid()}, floor = {floor_loop.pid()};
    TMeasured peers[] = {{collectd != nullptr ? collectd->pid() : 0}, {exporter != nullptr ? exporter->pid() : 0}};
    const auto threads_before = threads_of(daemon.pid());
    for (int i = 0; i < kWindows; ++i) {
        std::vector<std::pair<TMeasured *, double>> before;
        for (TMeasured *one : {&ours, &floor, &peers[0], &peers[1]})
            before.emplace_back(one, bench_cpu_of(one->pid));
        if (exporter != nullptr)
            scrape();
        sleep(kWindowS);
        for (const auto &[one, before_us] : before)
            one->windows_us.push_back(bench_cpu_of(one->pid) - before_us);
    }
    const double ours_ms = ours.median_ms();
    const std::string begin = std::string("10 s, ") + what;
    bench_line(begin.c_str(), ours_ms, floor.median_ms(), "ms CPU");
    for (const auto &[name, us] : threads_of(daemon.pid())) {
        const auto before = threads_before.find(name);
        const double ms = (us - (before != threads_before.end() ? before->second : 0)) / 1000 / kWindows;
        if (ms >= 0.01)
            bench_part(("    " + name).c_str(), ms, "ms CPU");
    }
    if (collectd != nullptr)
        bench_line("    the floor being collectd", ours_ms, peers[0].median_ms(), "ms CPU");
    if (exporter != nullptr)
        bench_line("    the floor being node_exporter, one scrape", ours_ms, peers[1].median_ms(), "ms CPU");
}

} // namespace

void bench_whole()
{
    const auto table = std::ssize(kProcessTable); // at least, besides what the machine runs
    const TIdleProcesses idle(static_cast<int>(std::max(table, kProcesses - count_processes())));
    printf("%td processes\n", count_processes());
    fflush(stdout);
    measure("hub present", true);
    measure("hub absent", false);
}
