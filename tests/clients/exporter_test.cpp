#include <gmock/gmock.h>

#include "clients/figures.h"
#include "exporter/fetcher.h"
#include "exporter/metrics.h"

namespace {

using testing::HasSubstr;
using testing::Not;

TFetch fetched()
{
    TFetch fetch;
    TSnapshot &now = fetch.snapshot;
    now.disks = {"warning", 7};
    now.fans = {"error", 7};
    now.recording = {"error", 8};
    now.cameras.state[3] = TCamera::kFailed;
    now.channels = {{3, "Y\"a\\rd", "", "", "", "", "", ""}};
    now.cpu = figures(TKind::kCpu, {15, 5, 0, 0, 80});
    now.memory = figures(TKind::kMemory, {1000, {}, 300});
    now.interfaces = {{"eth0", figures(TKind::kNetwork, {1000, {}})}};
    now.devices = {{"/dev/mapper/cachedev1", figures(TKind::kDisk, {20, 2.5, 0, 40, 0})}};
    now.services = {
        {"Vnvrd", figures(TKind::kCpuService, {150, 100, 50}), figures(TKind::kMemoryService, {9, 4, 0, 0})},
        {"VdbService", figures(TKind::kCpuService, {0, 0, 0}), figures(TKind::kMemoryService, {0, 0, 0, 0})}};
    fetch.age_s = 4;
    return fetch;
}

TEST(Metrics, AreInBaseUnits)
{
    const std::string text = metrics_text(metrics_of(fetched()));
    for (const char *line :
         {"velomond_up 1\n", "velomond_fetch_age_seconds 4\n", "velomond_disks_state{state=\"warning\"} 1\n",
          "velomond_disks_state{state=\"normal\"} 0\n", "velomond_fans_ok 0\n", "velomond_recording 0\n",
          "velomond_cpu_usage_ratio{mode=\"user\"} 0.15\n", "velomond_memory_total_bytes 1024000\n",
          "velomond_network_transmit_bytes_per_second{interface=\"eth0\"} 100\n",
          "velomond_cache_device_bytes_per_second{device=\"/dev/mapper/cachedev1\"} 2048\n", "} 0.0025\n",
          "velomond_camera_connected{channel=\"3\"} 0\n", "name=\"Y\\\"a\\\\rd\"",
          "velomond_service_running{service=\"VdbService\"} 0\n",
          "velomond_service_resident_memory_bytes{service=\"Vnvrd\"} 4096\n"})
        EXPECT_THAT(text, HasSubstr(line));
    EXPECT_THAT(text, testing::ContainsRegex("velomond_service_cpu_cores\\{.*user.*\\} 1\n"));
}

TEST(Metrics, OfWhatIsMissingThereIsNoSample)
{
    const std::string text = metrics_text(metrics_of(fetched()));
    for (const char *absent : {"velomond_memory_used_bytes", "receive_bytes", "nan", "velomond_hardware_info",
                               "memory_bytes{service=\"VdbService\"", "channel=\"0\""})
        EXPECT_THAT(text, Not(HasSubstr(absent)));

    TFetch fetch = fetched();
    fetch.snapshot.cpu = figures(TKind::kCpu, {}); // no round yet: the zeros of the rest mean nothing
    fetch.snapshot.recording = {"error", 0};       // never answered: there is no time of it
    const std::string early = metrics_text(metrics_of(fetch));
    EXPECT_THAT(early, HasSubstr("velomond_disks_state"));
    EXPECT_THAT(early, HasSubstr("velomond_recording 0\n"));
    for (const char *absent :
         {"velomond_cpu", "velomond_memory", "velomond_network", "velomond_service", "recording_timestamp"})
        EXPECT_THAT(early, Not(HasSubstr(absent)));

    fetch.error = "nothing answers";
    const std::string down = metrics_text(metrics_of(fetch));
    EXPECT_THAT(down, HasSubstr("velomond_up 0\n"));
    EXPECT_THAT(down, Not(HasSubstr("velomond_disks")));
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
