#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "base/startup_pages.h"
#include "exporter/server.h"
#include "query_api/clean_text.h"

namespace {

int run(int argc, char **argv)
{
    CLI::App app{"Prometheus exporter of the VeloMond monitor: /metrics on the loopback address.", "velomond-exporter"};
    app.set_version_flag("--version", std::string("velomond-exporter ") + VELOMOND_VERSION);
    TAddress address;
    uint16_t listen_port = 10192;
    double timeout_s = 3;
    app.add_option("--listen-port", listen_port, "port to listen on (10192)")->type_name("PORT");
    app.add_option("--host", address.host, "name or address of the monitor (127.0.0.1)")->type_name("HOST");
    app.add_option("--port", address.port, "its port (10191)")
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535).description(""));
    app.add_option("--timeout", timeout_s, "seconds for all requests of one scrape together (3)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.01, 60.0).description(""));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0)
            return app.exit(error);
        (void)fprintf(stderr, "velomond-exporter: %s (see --help)\n", clean_text(error.what(), 300).c_str());
        return 2;
    }

    /* Blocked before any thread is created, so that sigwait() below receives them. */
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    (void)sigprocmask(SIG_BLOCK, &ends, nullptr);
    (void)signal(SIGPIPE, SIG_IGN);

    TFetcher fetcher(address, std::chrono::milliseconds(static_cast<int64_t>(timeout_s * 1000)));
    TMetricsServer server(&fetcher);
    if (!server.start(listen_port)) {
        (void)fprintf(stderr, "velomond-exporter: cannot listen on port %u: %s\n", listen_port, strerror(errno));
        return 1;
    }
    (void)fprintf(stderr, "velomond-exporter: http://127.0.0.1:%u/metrics\n", server.port());
    release_startup_pages();
    int number = 0;
    (void)sigwait(&ends, &number);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        (void)fprintf(stderr, "velomond-exporter: %s\n", clean_text(error.what(), 300).c_str());
        return 1;
    }
}
