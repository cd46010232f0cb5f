#include "exporter/metrics.h"

#include <sstream>
#include <utility>

#include <prometheus/gauge.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

namespace {

using prometheus::Labels;

constexpr double kIntervalS = 10; // of the figures that are amounts of an interval
constexpr double kKilobyte = 1024;

class TMetrics {
public:
    /* Adds a sample if there is a value; the first one creates the family. */
    void add(const char *name, const char *help, const Labels &labels, const TFigure &value, double factor = 1)
    {
        if (value)
            prometheus::BuildGauge().Name(name).Help(help).Register(m_registry).Add(labels).Set(*value * factor);
    }
    std::vector<prometheus::MetricFamily> collect() const { return m_registry.Collect(); }

private:
    prometheus::Registry m_registry;
};

void add_states(const TSnapshot &now, TMetrics *metrics)
{
    for (const char *state : {"normal", "hour_warning", "warning", "error"})
        metrics->add("velomond_disks_state", "Overall state of the disks: 1 for the current state.", {{"state", state}},
                     now.disks.state == state ? 1.0 : 0.0);
    metrics->add("velomond_disks_report_timestamp_seconds", "When the state of the disks was last reported.", {},
                 static_cast<double>(now.disks.utc_s));
    metrics->add("velomond_fans_ok", "1 while no fan has failed.", {}, now.fans.state == "normal" ? 1.0 : 0.0);
    metrics->add("velomond_fans_report_timestamp_seconds", "When the state of the fans was last reported.", {},
                 static_cast<double>(now.fans.utc_s));
    /* 0 also until the recording service has answered once. */
    metrics->add("velomond_recording", "1 while any camera is recorded.", {},
                 now.recording.state == "normal" ? 1.0 : 0.0);
    if (now.recording.utc_s > 0)
        metrics->add("velomond_recording_timestamp_seconds", "When the recording service last answered.", {},
                     static_cast<double>(now.recording.utc_s));
    if (!now.hardware.empty())
        metrics->add("velomond_hardware_info", "Hardware state as the platform reports it.", {{"state", now.hardware}},
                     1.0);
}

void add_cameras(const TSnapshot &now, TMetrics *metrics)
{
    for (const TChannel &one : now.channels)
        metrics->add("velomond_camera_info", "Identity of a channel.",
                     {{"channel", std::to_string(one.id)},
                      {"name", one.name},
                      {"address", one.ip},
                      {"brand", one.brand},
                      {"server", one.ums_name},
                      {"guid", one.guid}},
                     1.0);
    for (size_t id = 0; id < now.cameras.state.size(); ++id) {
        if (now.cameras.state[id] != TCamera::kAbsent)
            metrics->add("velomond_camera_connected", "1 unless connecting failed in the newest minute.",
                         {{"channel", std::to_string(id)}}, now.cameras.state[id] == TCamera::kConnected ? 1.0 : 0.0);
    }
}

void add_system(const TSnapshot &now, TMetrics *metrics)
{
    const auto add_cpu = [metrics](const std::string &core, const TFigures &cpu) {
        for (const auto &[mode, key] : {std::pair("user", "user_pcnt"),
                                        {"system", "sys_pcnt"},
                                        {"iowait", "iowait_pcnt"},
                                        {"steal", "steal_pcnt"},
                                        {"idle", "idle_pcnt"}}) {
            if (core.empty())
                metrics->add("velomond_cpu_usage_ratio", "Share of all CPU time in the newest interval.",
                             {{"mode", mode}}, cpu.get(key), 0.01);
            else
                metrics->add("velomond_cpu_core_usage_ratio", "Share of a core's time in the newest interval.",
                             {{"core", core}, {"mode", mode}}, cpu.get(key), 0.01);
        }
    };
    add_cpu("", now.cpu);
    for (const auto &one : now.cores)
        add_cpu(one.name, one.now);

    const auto memory = [&](const char *name, const char *help, const char *key) {
        metrics->add(name, help, {}, now.memory.get(key), kKilobyte);
    };
    memory("velomond_memory_total_bytes", "Memory of the machine.", "MemTotal");
    memory("velomond_memory_used_bytes", "Memory in use.", "MemUsed");
    memory("velomond_memory_free_bytes", "Unused memory.", "MemFree");
    memory("velomond_memory_available_bytes", "Buffers, cache and free memory.", "MemAvailable");
    memory("velomond_memory_buffers_bytes", "Memory of buffers.", "Buffers");
    memory("velomond_memory_cached_bytes", "Memory of the page cache.", "Cached");
    memory("velomond_memory_reclaimable_bytes", "Memory of the kernel that can be reclaimed.", "SReclaimable");
    memory("velomond_memory_zfs_cache_bytes", "ZFS cache that is not counted as free.", "zfs_mem_cache");
    memory("velomond_swap_total_bytes", "Swap space.", "SwapTotal");
    memory("velomond_swap_free_bytes", "Swap space that is free.", "SwapFree");
    const auto faults = [&](const char *kind, const char *key) {
        metrics->add("velomond_page_faults_per_second", "Page faults in the newest interval.", {{"kind", kind}},
                     now.memory.get(key), 1 / kIntervalS);
    };
    faults("all", "pgfault");
    faults("major", "pgmajfault");
}

void add_entities(const TSnapshot &now, TMetrics *metrics)
{
    for (const auto &one : now.interfaces) {
        const Labels labels = {{"interface", one.name}};
        metrics->add("velomond_network_transmit_bytes_per_second", "Bytes sent in the newest interval.", labels,
                     one.now.get("tx"), 1 / kIntervalS);
        metrics->add("velomond_network_receive_bytes_per_second", "Bytes received in the newest interval.", labels,
                     one.now.get("rx"), 1 / kIntervalS);
    }
    for (const auto &one : now.devices) {
        const Labels labels = {{"device", one.name}};
        metrics->add("velomond_cache_device_bytes_per_second", "Bytes read and written in the newest interval.", labels,
                     one.now.get("throughput"), kKilobyte / kIntervalS);
        for (const auto &[kind, latency, count] :
             {std::tuple("read", "rd_latency", "rd_io"), {"write", "wr_latency", "wr_io"}}) {
            const Labels of_kind = {{"device", one.name}, {"operation", kind}};
            metrics->add("velomond_cache_device_latency_seconds", "Mean time of a request in the newest interval.",
                         of_kind, one.now.get(latency), 0.001);
            metrics->add("velomond_cache_device_requests_per_second", "Requests in the newest interval.", of_kind,
                         one.now.get(count), 1 / kIntervalS);
        }
    }
    for (const auto &one : now.services) {
        const Labels labels = {{"service", one.name}};
        metrics->add("velomond_service_running", "1 while a process of that name runs.", labels,
                     one.runs() ? 1.0 : 0.0);
        if (!one.runs())
            continue;
        for (const auto &[mode, key] : {std::pair("user", "user_pcnt"), {"system", "sys_pcnt"}})
            metrics->add("velomond_service_cpu_cores", "CPU time in the newest interval, in cores.",
                         {{"service", one.name}, {"mode", mode}}, one.cpu.get(key), 0.01);
        metrics->add("velomond_service_resident_memory_bytes", "Memory of the process.", labels,
                     one.memory.get("VmRSS"), kKilobyte);
        metrics->add("velomond_service_virtual_memory_bytes", "Address space of the process.", labels,
                     one.memory.get("VmSize"), kKilobyte);
    }
}

} // namespace

std::vector<prometheus::MetricFamily> metrics_of(const TFetch &fetch)
{
    TMetrics metrics;
    metrics.add("velomond_up", "1 if the monitor answered all requests of the newest fetch.", {},
                fetch.error.empty() ? 1.0 : 0.0);
    metrics.add("velomond_scrape_duration_seconds", "Duration of the newest fetch.", {}, fetch.duration_s);
    metrics.add("velomond_fetch_age_seconds", "Time since the end of the newest fetch.", {}, fetch.age_s);
    metrics.add("velomond_exporter_info", "Version of this exporter.", {{"version", VELOMOND_VERSION}}, 1.0);
    if (fetch.error.empty()) {
        const TSnapshot &now = fetch.snapshot;
        add_states(now, &metrics);
        add_cameras(now, &metrics);
        if (now.has_figures()) {
            add_system(now, &metrics);
            add_entities(now, &metrics);
        }
    }
    return metrics.collect();
}

std::string metrics_text(const std::vector<prometheus::MetricFamily> &families)
{
    std::ostringstream text;
    prometheus::TextSerializer().Serialize(text, families);
    return text.str();
}
