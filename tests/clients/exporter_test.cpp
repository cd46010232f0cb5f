#include <gmock/gmock.h>

#include "clients/snapshot.h"
#include "exporter/fetcher.h"
#include "exporter/metrics.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TEST(Metrics, AreInBaseUnitsAndLeaveOutWhatIsMissing)
{
    TFetch fetch;
    fetch.snapshot = recorder();
    fetch.snapshot.channels[1].name = "Y\"a\\rd";
    fetch.age_s = 4;
    const std::string text = metrics_text(metrics_of(fetch));
    for (const char *line :
         {"velomond_up 1\n", "velomond_fetch_age_seconds 4\n", "velomond_disks_state{state=\"normal\"} 1\n",
          "velomond_disks_state{state=\"warning\"} 0\n", "velomond_fans_ok 1\n", "velomond_recording 1\n",
          "velomond_cpu_usage_ratio{mode=\"user\"} 0.15\n", "velomond_memory_total_bytes 1024000\n",
          "velomond_network_transmit_bytes_per_second{interface=\"eth0\"} 100\n",
          "velomond_cache_device_bytes_per_second{device=\"/dev/mapper/cachedev1\"} 1024\n", "} 0.002\n",
          "velomond_camera_connected{channel=\"0\"} 1\n", "velomond_camera_connected{channel=\"4\"} 0\n",
          "name=\"Y\\\"a\\\\rd\"", "velomond_service_running{service=\"VdbService\"} 0\n",
          "velomond_service_resident_memory_bytes{service=\"VeloMond\"} 4096\n"})
        EXPECT_THAT(text, HasSubstr(line));
    EXPECT_THAT(text, testing::ContainsRegex("velomond_service_cpu_cores\\{.*user.*\\} 0.05\n"));
    for (const char *absent : {"velomond_memory_used_bytes", "receive_bytes", "nan", "velomond_hardware_info",
                               "memory_bytes{service=\"VdbService\"", "channel=\"1\""})
        EXPECT_THAT(text, Not(HasSubstr(absent)));

    fetch.snapshot.cpu = figures(TKind::kCpu, {}); // no round yet: the zeros of the rest mean nothing
    fetch.snapshot.fans.state = "error";
    fetch.snapshot.recording = {"error", 0}; // never answered: there is no time of it
    const std::string early = metrics_text(metrics_of(fetch));
    for (const char *line : {"velomond_disks_state", "velomond_fans_ok 0\n", "velomond_recording 0\n"})
        EXPECT_THAT(early, HasSubstr(line));
    for (const char *absent :
         {"velomond_cpu", "velomond_memory", "velomond_network", "velomond_service", "recording_timestamp"})
        EXPECT_THAT(early, Not(HasSubstr(absent)));
}

TEST(Fetcher, AsksNoMoreOftenThanTheMonitorSamples)
{
    using namespace std::chrono_literals;
    auto now = std::chrono::steady_clock::time_point(1h);
    TFetcher fetcher({"127.0.0.1", 1}, 1000ms, [&now] { return now; }); // nothing listens there
    testing::internal::CaptureStderr();
    for (const auto &[passed, age] : {std::pair(0ms, "0\n"), {5000ms, "5\n"}, {4999ms, "9.999"}, {1ms, "0\n"}}) {
        now += passed;
        const std::string text = fetcher.text();
        EXPECT_THAT(text, HasSubstr("velomond_up 0\n"));
        EXPECT_THAT(text, HasSubstr(std::string("velomond_fetch_age_seconds ") + age));
    }
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 1); // the same failure twice
}

} // namespace
