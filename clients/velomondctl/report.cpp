#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <utility>

#include "query_api/clean_text.h"
#include "velomondctl/commands.h"
#include "velomondctl/gnuplot.h"
#include "velomondctl/progress.h"
#include "velomondctl/report_page.h"
#include "velomondctl/status.h"

namespace {

constexpr const char *kAll = "system_all";

/* A series in the form of a dump, so that charts are drawn in one way: the newest
 * first, a point per minute. */
TDumpEntity entity_of(const std::string &name, const TSeries &series, int64_t utc_s,
                      const std::vector<std::pair<const char *, const char *>> &labels, double factor = 1)
{
    TDumpEntity entity{name, {}};
    for (const auto &[key, label] : labels) {
        const std::vector<TFigure> *const points = series.get(key);
        if (points == nullptr)
            continue;
        std::vector<TFigure> &row = entity.rows[label];
        std::vector<TFigure> &times = entity.rows["time_stamp(ms)"];
        times.clear();
        for (size_t i = 0; i < points->size(); ++i) {
            row.push_back((*points)[i] ? TFigure(*(*points)[i] * factor) : TFigure());
            times.emplace_back(static_cast<double>(utc_s - 60 * static_cast<int64_t>(i)) * 1000);
        }
    }
    return entity;
}

/* The histories of a live monitor in the form of a dump: rates are converted back to
 * amounts per minute. */
TOutcome fetch_dump(TQueryApi *api, const TStatus &status, int64_t utc_s, TDump *out)
{
    constexpr int64_t kMinute = 60;
    out->interval_s = kMinute;
    TSeries series;
    TOutcome outcome;
    const auto fetch = [&](TKind kind, const std::string &name) {
        outcome = api->series(kind, name, &series);
        return outcome.ok();
    };
    for (const std::string &name : status.cores) {
        if (!fetch(TKind::kCpu, name))
            return outcome;
        out->cpu.push_back(entity_of(name, series, utc_s,
                                     {{"user_pcnt", "user"},
                                      {"sys_pcnt", "system"},
                                      {"iowait_pcnt", "iowait"},
                                      {"steal_pcnt", "steal"},
                                      {"idle_pcnt", "idle"}}));
    }
    if (!fetch(TKind::kMemory, kAll))
        return outcome;
    out->mem.push_back(entity_of(kAll, series, utc_s,
                                 {{"MemTotal", "mem_total"},
                                  {"MemFree", "mem_free"},
                                  {"MemAvailable", "mem_avail"},
                                  {"Buffers", "buffers"},
                                  {"Cached", "cached"},
                                  {"SwapFree", "SwapFree"}}));
    for (const std::string &name : status.services) {
        if (!fetch(TKind::kCpuService, name))
            return outcome;
        out->cpu.push_back(entity_of(name, series, utc_s, {{"total_pcnt", "total"}}));
        if (!fetch(TKind::kMemoryService, name))
            return outcome;
        out->mem.push_back(entity_of(name, series, utc_s, {{"VmSize", "VmSize"}, {"VmRSS", "VmRSS"}}));
    }
    for (const std::string &name : status.interfaces) {
        if (!fetch(TKind::kNetwork, name))
            return outcome;
        out->net.push_back(entity_of(name, series, utc_s, {{"tx", "tx"}, {"rx", "rx"}}, kMinute));
    }
    for (const std::string &name : status.devices) {
        if (!fetch(TKind::kDisk, name))
            return outcome;
        TDumpEntity device =
            entity_of(name, series, utc_s, {{"rd_latency", "rd_latency"}, {"wr_latency", "wr_latency"}});
        device.rows.merge(entity_of(name, series, utc_s, {{"throughput", "throughput"}}, kMinute).rows);
        out->disk.push_back(std::move(device));
    }
    return outcome;
}

TTable cameras_table(const TSnapshot &now)
{
    TTable table{{{"id", "channel", ""}, {"name", "name", ""}, {"address", "address", ""}, {"state", "state", ""}}, {}};
    for (const TChannel &one : now.channels) {
        const TCamera state = now.cameras.state[one.id];
        table.rows.push_back({static_cast<int64_t>(one.id), one.name, one.ip,
                              std::string(state == TCamera::kConnected ? "connected"
                                          : state == TCamera::kFailed  ? "failed"
                                                                       : "absent")});
    }
    return table;
}

TOutcome live_report(const TSettings &settings, TReport *out)
{
    TQueryApi api(settings.address);
    api.begin(settings.timeout);
    const int64_t utc_s = time(nullptr);
    TTopData top;
    top.utc_s = utc_s;
    TStatus status;
    TDump dump;
    TOutcome outcome = snapshot_fetch(&api, &top.now);
    if (outcome.ok())
        outcome = api.status(&status);
    if (outcome.ok())
        outcome = fetch_dump(&api, status, utc_s, &dump);
    if (!outcome.ok())
        return outcome;

    TReport report = report_of_dump("", dump);
    report.title = "Recorder report, " + time_text_utc(utc_s);
    /* Points of a minute are no evidence of gaps, so only the watchers' alarms count. */
    report.alarms = top_alarms(top);
    if (report.pictures.empty())
        report.alarms.push_back({"no histories yet: the monitor has just started", TTone::kWarning});
    report.facts = {{"monitor", clean_text(settings.address.host) + " port " + std::to_string(settings.address.port)},
                    {"hardware", top.now.hardware.empty() ? "-" : top.now.hardware},
                    {"cores", std::to_string(top.now.cores.size())},
                    {"memory", top.now.has_figures() ? size_text(*top.now.memory.get("MemTotal") * 1024) : "-"},
                    {"disks", top.now.disks.state + " since " + time_text_utc(top.now.disks.utc_s)},
                    {"fans", top.now.fans.state + " since " + time_text_utc(top.now.fans.utc_s)},
                    {"recording", top.now.recording.state}};
    report.tables.emplace_back("Services", services_table(top.now));
    if (!top.now.channels.empty())
        report.tables.emplace_back("Cameras", cameras_table(top.now));
    if (settings.is_here() && !volumes_here().empty())
        report.tables.emplace_back("Volumes", volumes_table(volumes_here()));
    *out = std::move(report);
    return {};
}

/* Written under another name first: the file is either complete or unchanged. */
TOutcome write_file(const std::string &path, const std::string &text)
{
    const std::string next = path + ".part";
    std::ofstream file(next, std::ios::binary | std::ios::trunc);
    file << text << std::flush;
    const bool written = file.good();
    file.close();
    if (written && rename(next.c_str(), path.c_str()) == 0)
        return {};
    const std::string reason = strerror(errno);
    (void)remove(next.c_str());
    return failure(TFault::kOutput, "cannot write " + clean_text(path) + ": " + reason);
}

} // namespace

TOutcome command_report(const TSettings &settings, const TReportWanted &wanted)
{
    TReport report;
    TDump dump;
    TOutcome outcome = wanted.folder.empty() ? live_report(settings, &report) : dump_read(wanted.folder, &dump);
    if (!outcome.ok())
        return outcome;
    if (!wanted.folder.empty())
        report = report_of_dump(clean_text(wanted.folder), dump);

    std::vector<std::string> svgs;
    {
        TProgress progress("report", report.pictures.size() + 1);
        for (const TPicture &picture : report.pictures) {
            progress.next(picture.title);
            svgs.emplace_back();
            outcome = gnuplot_draw(picture_script(picture), std::chrono::seconds(30), &svgs.back());
            if (!outcome.ok())
                return outcome;
        }
        progress.next("page");
    }
    const std::string path = wanted.file.empty() ? "velomond-report.html" : wanted.file;
    outcome = write_file(path, report_page(report, svgs));
    return outcome.ok() ? put_out("report written: " + clean_text(path) + "\n") : outcome;
}
