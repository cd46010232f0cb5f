#include "bench.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>

#include "bare_server.h"
#include "platform/fd.h"
#include "service/VeloMond_RESTful.h"
#include "stats/sysstat_cpu.h"

namespace {

constexpr uint16_t kOurPort = 10191;
constexpr uint16_t kBarePort = 10192;
constexpr int kSlices = 7;
constexpr double kSliceS = 0.5;
constexpr const char *kRequest = "GET /sysmonService/cpu_info?method=avg&type=0&name=system_all HTTP/1.1\r\n"
                                 "Host: localhost\r\n\r\n";

std::string g_body; // what the bare server answers

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
        nanosleep(&pause, nullptr); // the server is coming up
    }
    return {};
}

bool ask(const TFd &peer)
{
    const std::string_view request = kRequest;
    return send(peer.get(), request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size());
}

/* Takes one answer of `size` bytes; of any size, whole, when that is 0. */
std::string take(const TFd &peer, size_t size)
{
    std::string text;
    char chunk[4096];
    size_t wanted = size;
    while (wanted == 0 || text.size() < wanted) {
        const ssize_t got = recv(peer.get(), chunk, sizeof(chunk), 0);
        if (got <= 0)
            return "";
        text.append(chunk, static_cast<size_t>(got));
        const size_t head = text.find("\r\n\r\n");
        if (wanted == 0 && head != std::string::npos)
            wanted = head + 4 + strtoul(text.c_str() + text.find("Content-Length: ") + 16, nullptr, 10);
    }
    return text;
}

/* Requests per second over `count` kept-alive connections, one request under way
 * on each. */
double rate(uint16_t port, int count)
{
    std::vector<TFd> peers;
    peers.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        peers.push_back(connect_to(port));
    if (!ask(peers[0]))
        return 0;
    const size_t size = take(peers[0], 0).size();
    if (size == 0)
        return 0;
    const double start = now_s();
    double end = start;
    int answers = 0;
    while (end - start < kSliceS) {
        for (const TFd &peer : peers)
            (void)ask(peer);
        for (const TFd &peer : peers) {
            if (take(peer, size).empty())
                return 0;
            ++answers;
        }
        end = now_s();
    }
    return answers / (end - start);
}

void serve_ours()
{
    sysstat_cpu_init();
    sysstat_cpu_sample();
    sysstat_cpu_sample();
    sysmon_service_init();
}

void serve_bare()
{
    bare_server_start(kBarePort, g_body.data(), g_body.size());
}

} // namespace

void bench_requests()
{
    const TChild ours(serve_ours);
    const TFd peer = connect_to(kOurPort);
    (void)ask(peer);
    const std::string answer = take(peer, 0);
    if (answer.find("\"return\": 0") == std::string::npos) {
        printf("requests: no answer of ours on port %d\n", kOurPort);
        return;
    }
    g_body = answer.substr(answer.find("\r\n\r\n") + 4);
    const TChild bare(serve_bare);
    for (const int connections : {1, 16}) {
        std::vector<double> a, b;
        for (int i = 0; i < kSlices; ++i) { // in turns
            a.push_back(rate(kOurPort, connections));
            b.push_back(rate(kBarePort, connections));
        }
        std::nth_element(a.begin(), a.begin() + kSlices / 2, a.end());
        std::nth_element(b.begin(), b.begin() + kSlices / 2, b.end());
        bench_line(("cpu_info avg, " + std::to_string(connections) + " connections").c_str(), a[kSlices / 2],
                   b[kSlices / 2], "requests/s");
    }
}
