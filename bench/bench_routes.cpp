#include "bench.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include "bare_server.h"
#include "base/fd.h"

namespace {

constexpr uint16_t kOurPort = 10191;
constexpr uint16_t kBarePort = 10192;
constexpr int kSlices = 7;
constexpr double kSliceS = 0.1;

struct TRoute {
    const char *method, *target;
    const char *body;   // of the request
    const char *answer; // how it begins
    const char *what;
};
constexpr const char *kDone = "{ \"return\": 0";
constexpr TRoute kRoutes[] = {
    {"GET", "status", "", kDone, "status"},
    {"GET", "cpu_info?method=avg&type=0&name=system_all", "", kDone, "cpu_info, avg"},
    {"GET", "mem_info?method=avg&type=0&name=system_all", "", kDone, "mem_info, avg"},
    {"GET", "network_info?method=avg&type=0&if_name=nic0", "", kDone, "network_info, avg"},
    {"GET", "disk_info?method=avg&type=0&vol_name=/dev/mapper/cachedev1", "", kDone, "disk_info, avg"},
    {"GET", "cpu_info?method=line_data&name=system_all", "", kDone, "cpu_info, line_data"},
    {"GET", "smart_info?method=disk_update", "", kDone, "smart_info"},
    {"GET", "syshealth_info?method=fan_update", "", kDone, "syshealth_info"},
    {"GET", "recording_state", "", "{ \"utc_time\"", "recording_state"},
    {"GET", "cam_conn?method=cur_data", "", kDone, "cam_conn"},
    {"PUT", "banip_mgr", "{}", "{ \"return\": -1", "banip_mgr"},
    {"PUT", "Notify", R"({"notice_reason":{"type":2048,"action":1},"vbus_data":{"vbus_type":2,"vbus_action":2}})",
     "{ \"retCode\": 0", "Notify, a wake-up"},
    {"PUT", "Notify", R"({"notice_reason":{"type":1035,"action":1}})", "{ \"retCode\": 0", "Notify, disks"},
    {"GET", "statistics_dump", "", kDone, "statistics_dump"},
};

std::string g_body; // the bare server's answer

std::string request_of(const TRoute &route)
{
    const std::string_view body = route.body;
    std::string text =
        std::string(route.method) + " /sysmonService/" + route.target + " HTTP/1.1\r\nHost: localhost\r\n";
    if (!body.empty())
        text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    return text.append("\r\n").append(body);
}

double now_s()
{
    struct timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

TFd connect_to(uint16_t port)
{
    struct sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int attempt = 0; attempt < 100; ++attempt) {
        TFd peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        setsockopt(peer.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        if (connect(peer.get(), reinterpret_cast<const struct sockaddr *>(&address), sizeof(address)) == 0)
            return peer;
        const struct timespec pause = {0, 20000000};
        nanosleep(&pause, nullptr); // until the server is up
    }
    return {};
}

bool ask(const TFd &peer, std::string_view request)
{
    return send(peer.get(), request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size());
}

/* The body of one answer, valid until the next call; empty on failure. */
std::string_view take(const TFd &peer)
{
    static char buffer[65536];
    constexpr std::string_view kLength = "Content-Length: ";
    size_t have = 0;
    for (;;) {
        const ssize_t got = recv(peer.get(), buffer + have, sizeof(buffer) - have, 0);
        if (got <= 0)
            return {};
        have += static_cast<size_t>(got);
        const std::string_view text(buffer, have);
        const size_t head = text.find("\r\n\r\n");
        const size_t length = text.find(kLength);
        if (head == std::string_view::npos || length > head)
            continue;
        const size_t size = strtoul(text.data() + length + kLength.size(), nullptr, 10);
        if (have >= head + 4 + size)
            return text.substr(head + 4, size);
    }
}

/* One slice: requests per second over `count` kept-alive connections, one request
 * under way on each, and the CPU time that the serving process takes for one. */
struct TSlice {
    double per_s, cpu_us;
};
TSlice slice(pid_t server, uint16_t port, int count, std::string_view request)
{
    std::vector<TFd> peers;
    peers.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        peers.push_back(connect_to(port));
    const double cpu_before_us = bench_cpu_of(server);
    const double start = now_s();
    double end = start;
    int answers = 0;
    while (end - start < kSliceS) {
        for (const TFd &peer : peers)
            (void)ask(peer, request);
        for (const TFd &peer : peers) {
            if (take(peer).empty())
                return {};
            ++answers;
        }
        end = now_s();
    }
    return {answers / (end - start), (bench_cpu_of(server) - cpu_before_us) / answers};
}

/* Where the client, which is this process, and the servers may run. With one request
 * under way client and server take turns, and a figure would show no more than
 * whether the scheduler has put them on one processor: there it keeps them. With more
 * each side has a processor of its own. */
class TPlaces {
public:
    TPlaces(bool together, std::initializer_list<pid_t> servers) : m_pids(servers)
    {
        sched_getaffinity(0, sizeof(m_all), &m_all);
        const int client = sched_getcpu();
        int server = client;
        for (int cpu = 0; !together && server == client && cpu < CPU_SETSIZE; ++cpu)
            server = CPU_ISSET(cpu, &m_all) && cpu != client ? cpu : server;
        place(getpid(), only(client));
        for (const pid_t pid : m_pids)
            place(pid, only(server));
    }
    ~TPlaces()
    {
        place(getpid(), m_all);
        for (const pid_t pid : m_pids)
            place(pid, m_all);
    }
    TPlaces(const TPlaces &) = delete;
    TPlaces &operator=(const TPlaces &) = delete;

private:
    static cpu_set_t only(int cpu)
    {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        return one;
    }
    static void place(pid_t pid, const cpu_set_t &processors)
    {
        for (const auto &thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
            sched_setaffinity(std::stoi(thread.path().filename()), sizeof(processors), &processors);
    }

    cpu_set_t m_all = {};
    std::vector<pid_t> m_pids;
};

double median(std::vector<TSlice> slices, double TSlice::*figure)
{
    const auto middle = slices.begin() + static_cast<std::ptrdiff_t>(slices.size() / 2);
    std::nth_element(slices.begin(), middle, slices.end(),
                     [figure](const TSlice &a, const TSlice &b) { return a.*figure < b.*figure; });
    return (*middle).*figure;
}

void serve_bare()
{
    bare_server_start(kBarePort, g_body.data(), g_body.size());
}

void measure(const TRoute &route)
{
    const std::string request = request_of(route);
    {
        const TFd peer = connect_to(kOurPort);
        (void)ask(peer, request);
        g_body = take(peer);
    }
    if (!g_body.starts_with(route.answer)) {
        printf("%s: no such answer on port %d, but: %s\n", route.what, kOurPort, g_body.c_str());
        return;
    }
    for (const int count : {1, 16}) {
        const TChild bare(serve_bare);
        (void)connect_to(kBarePort); // it is up, with all its threads
        const TPlaces places(count == 1, {getppid(), bare.pid()});
        std::vector<TSlice> ours, floor;
        for (int i = 0; i < kSlices; ++i) {
            ours.push_back(slice(getppid(), kOurPort, count, request));
            floor.push_back(slice(bare.pid(), kBarePort, count, request));
        }
        const std::string what = std::string(route.what) + ", " + std::to_string(count) + " at a time";
        bench_line(what.c_str(), median(ours, &TSlice::per_s), median(floor, &TSlice::per_s), "requests/s");
        bench_line("    CPU time of one", median(ours, &TSlice::cpu_us), median(floor, &TSlice::cpu_us), "us CPU");
    }
}

void measure_all()
{
    for (const TRoute &route : kRoutes)
        measure(route);
}

} // namespace

void bench_ask_all()
{
    const TFd peer = connect_to(kOurPort);
    for (const TRoute &route : kRoutes) {
        (void)ask(peer, request_of(route));
        (void)take(peer);
    }
}

void bench_routes()
{
    bench_in_child(measure_all);
}
