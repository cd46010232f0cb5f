#include "velomondctl/report_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <tuple>

namespace {

constexpr std::array<std::string_view, kMaxCurves> kColours = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e",
                                                               "#9467bd", "#8c564b", "#17becf", "#7f7f7f"};

constexpr std::string_view kStyle = R"(
body{font:15px/1.45 sans-serif;max-width:60em;margin:2em auto;padding:0 1em;color:#222;background:#fff}
h1{font-size:1.5em}h2{font-size:1.15em;margin:1.8em 0 .4em}
table{border-collapse:collapse;margin:.5em 0;font-variant-numeric:tabular-nums}
th,td{padding:.15em .8em .15em 0;text-align:left;border-bottom:1px solid #ddd}td.n,th.n{text-align:right}
img{width:100%;height:auto;border:1px solid #eee}.dot{display:inline-block;width:.8em;height:.8em;margin-right:.4em}
.bad{color:#b00020;font-weight:bold}.warn{color:#8a5a00}.good{color:#186a2b}
@media print{h2{break-after:avoid}img,table{break-inside:avoid}}
)";

/* Of the points that are not missing. */
struct TSummary {
    TFigure newest, least, mean, most;
};
TSummary summary_of(const TCurve &curve)
{
    TSummary summary;
    double sum = 0;
    size_t count = 0;
    for (const auto &[time, value] : curve.points) {
        if (!value)
            continue;
        summary.newest = value;
        summary.least = std::min(summary.least.value_or(*value), *value);
        summary.most = std::max(summary.most.value_or(*value), *value);
        sum += *value;
        ++count;
    }
    if (count > 0)
        summary.mean = sum / static_cast<double>(count);
    return summary;
}

std::string td(const std::string &text, bool number)
{
    return (number ? "<td class=n>" : "<td>") + html_text(text) + "</td>";
}

std::string html_table(const TTable &table)
{
    std::string html = "<table><tr>";
    for (const TColumn &column : table.columns)
        html += "<th>" + html_text(column.head + (column.unit.empty() ? "" : " (" + std::string(column.unit) + ")"));
    html += "</tr>\n";
    for (const auto &row : table.rows) {
        html += "<tr>";
        for (const TCell &one : row)
            html += td(number_text(one), std::holds_alternative<double>(one) || std::holds_alternative<int64_t>(one));
        html += "</tr>\n";
    }
    return html + "</table>\n";
}

std::string legend(const TPicture &picture)
{
    std::string html = "<table><tr><th>" + html_text(picture.unit) +
                       "<th class=n>newest<th class=n>min<th class=n>mean<th class=n>max</tr>\n";
    for (size_t i = 0; i < picture.curves.size(); ++i) {
        const TSummary summary = summary_of(picture.curves[i]);
        html += "<tr><td><span class=dot style=\"background:" + std::string(curve_colour(i)) + "\"></span>" +
                html_text(picture.curves[i].name) + "</td>";
        for (const TFigure &figure : {summary.newest, summary.least, summary.mean, summary.most})
            html += td(number_text(cell(figure)), true);
        html += "</tr>\n";
    }
    return html + "</table>\n";
}

/* The rows of an entity as curves, times in front. */
TCurve curve_of(const TDumpEntity &entity, const std::string &name, const std::string &label, double factor)
{
    TCurve curve{name, {}};
    const std::vector<TFigure> *const times = entity.row("time_stamp(ms)");
    const std::vector<TFigure> *const values = entity.row(label);
    if (times == nullptr || values == nullptr)
        return curve;
    for (size_t i = std::min(times->size(), values->size()); i-- > 0;) {
        const TFigure value = (*values)[i];
        if ((*times)[i])
            curve.points.emplace_back(static_cast<int64_t>(*(*times)[i] / 1000),
                                      value ? TFigure(*value * factor) : TFigure());
    }
    return curve;
}

/* Amounts of an interval as rates: each divided by the time since the one before,
 * which for the oldest is what an interval should be. */
void per_second(int64_t interval_s, TCurve *curve)
{
    for (size_t i = curve->points.size(); i-- > 0;) {
        const int64_t length = i > 0 ? curve->points[i].first - curve->points[i - 1].first : interval_s;
        TFigure &value = curve->points[i].second;
        value = value && length > 0 ? TFigure(*value / static_cast<double>(length)) : TFigure();
    }
}

void add_picture(const std::string &title, const std::string &unit, std::vector<TCurve> curves, TReport *report)
{
    std::erase_if(curves, [](const TCurve &one) { return !summary_of(one).newest; });
    if (curves.size() > kMaxCurves) { // those with the most to show
        std::stable_sort(curves.begin(), curves.end(), [](const TCurve &a, const TCurve &b) {
            return summary_of(a).mean.value_or(0) > summary_of(b).mean.value_or(0);
        });
        curves.resize(kMaxCurves);
    }
    if (!curves.empty())
        report->pictures.push_back({title, unit, std::move(curves)});
}

bool is_system_key(const std::string &name)
{
    return name == "system_all" || (name.starts_with("cpu") && name.size() > 3 && name[3] >= '0' && name[3] <= '9');
}

void add_cpu(const std::vector<TDumpEntity> &all, TReport *report)
{
    std::vector<TCurve> machine;
    std::vector<TCurve> cores;
    std::vector<TCurve> services;
    for (const TDumpEntity &one : all) {
        if (!is_system_key(one.name)) {
            services.push_back(curve_of(one, one.name, "total", 1));
            continue;
        }
        if (one.name == "system_all") {
            for (const char *label : {"user", "system", "iowait", "steal"})
                machine.push_back(curve_of(one, label, label, 1));
            continue;
        }
        TCurve busy = curve_of(one, one.name, "idle", 1);
        for (auto &[time, value] : busy.points)
            value = value ? TFigure(100 - *value) : value;
        cores.push_back(std::move(busy));
    }
    std::erase_if(services, [](const TCurve &one) { return summary_of(one).most.value_or(0) <= 0; });
    add_picture("CPU of the machine", "% of all time", std::move(machine), report);
    add_picture("CPU use per core", "% of a core", std::move(cores), report);
    add_picture("CPU of the services", "% of a core", std::move(services), report);
}

void add_memory(const std::vector<TDumpEntity> &all, TReport *report)
{
    std::vector<TCurve> machine;
    std::vector<TCurve> services;
    for (const TDumpEntity &one : all) {
        if (one.row("mem_free") == nullptr) {
            services.push_back(curve_of(one, one.name, "VmRSS", 1.0 / 1024));
            continue;
        }
        for (const auto &[name, label] : {std::pair("available", "mem_avail"),
                                          {"free", "mem_free"},
                                          {"cached", "cached"},
                                          {"buffers", "buffers"},
                                          {"swap free", "SwapFree"}})
            machine.push_back(curve_of(one, name, label, 1.0 / 1024));
        const std::vector<TFigure> *const total = one.row("mem_total");
        if (total != nullptr && !total->empty() && total->front())
            report->facts.emplace_back("memory", size_text(*total->front() * 1024));
    }
    std::erase_if(services, [](const TCurve &one) { return summary_of(one).most.value_or(0) <= 0; });
    add_picture("Memory of the machine", "MiB", std::move(machine), report);
    add_picture("Memory of the services", "MiB resident", std::move(services), report);
}

void add_io(const TDump &dump, TReport *report)
{
    std::vector<TCurve> network;
    for (const TDumpEntity &one : dump.net) {
        for (const auto &[words, label] : {std::pair(" sent", "tx"), {" received", "rx"}}) {
            network.push_back(curve_of(one, one.name + words, label, 1.0 / 1000));
            per_second(dump.interval_s, &network.back());
        }
    }
    add_picture("Network", "kB/s", std::move(network), report);
    std::vector<TCurve> throughput;
    std::vector<TCurve> latency;
    for (const TDumpEntity &one : dump.disk) {
        const std::string path = one.name.substr(0, one.name.find(' '));
        const std::string name = path.substr(path.rfind('/') + 1);
        throughput.push_back(curve_of(one, name, "throughput", 1));
        per_second(dump.interval_s, &throughput.back());
        latency.push_back(curve_of(one, name + " read", "rd_latency", 1));
        latency.push_back(curve_of(one, name + " write", "wr_latency", 1));
    }
    add_picture("Cache devices", "KiB/s", std::move(throughput), report);
    add_picture("Latency of the cache devices", "ms per request", std::move(latency), report);
}

/* Gaps, load and restarts: first hints when searching for a cause. */
void add_oddities(const TDump &dump, TReport *report)
{
    constexpr int64_t kGapS = 30;
    for (const TDumpEntity &one : dump.cpu) {
        if (one.name != "system_all")
            continue;
        const TCurve idle = curve_of(one, "", "idle", 1);
        for (size_t i = 1; i < idle.points.size(); ++i) {
            const int64_t gap = idle.points[i].first - idle.points[i - 1].first;
            if (gap > kGapS || gap < 0)
                report->alarms.push_back({(gap < 0 ? "the clock went back " : "no sample for ") +
                                              std::to_string(std::abs(gap)) + " s until " +
                                              time_text_utc(idle.points[i].first),
                                          TTone::kWarning});
        }
        const TSummary summary = summary_of(idle);
        if (summary.mean && *summary.mean < 10)
            report->alarms.push_back(
                {"the CPU is busy for " + number_text(100 - *summary.mean) + " % of the time", TTone::kBad});
        if (!idle.points.empty()) {
            report->facts.emplace_back("from", time_text_utc(idle.points.front().first));
            report->facts.emplace_back("to", time_text_utc(idle.points.back().first));
        }
    }
    for (const TDumpEntity &one : dump.mem) {
        const TCurve size = curve_of(one, "", "VmSize", 1);
        const TSummary summary = summary_of(size);
        if (summary.most.value_or(0) > 0 && summary.least.value_or(0) <= 0)
            report->alarms.push_back(
                {one.name + (summary.newest.value_or(0) > 0 ? " started" : " ended") + " in this time",
                 summary.newest.value_or(0) > 0 ? TTone::kWarning : TTone::kBad});
    }
    constexpr double kSlowMs = 100;
    for (const TPicture &picture : report->pictures) {
        for (const TCurve &one : picture.curves) {
            const TFigure most = summary_of(one).most;
            if (picture.unit == "ms per request" && most.value_or(0) > kSlowMs)
                report->alarms.push_back({one.name + " takes up to " + number_text(*most) + " ms", TTone::kWarning});
        }
    }
}

} // namespace

std::string html_text(std::string_view text)
{
    std::string html;
    for (const char c : text) {
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        case '\'':
            html += "&#39;";
            break;
        default:
            html += c;
        }
    }
    return html;
}

std::string base64_text(std::string_view bytes)
{
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t j = 0; j < 3; ++j)
            group = group << 8 | (j < count ? static_cast<uint8_t>(bytes[i + j]) : 0U);
        for (size_t j = 0; j < 4; ++j)
            text += j <= count ? kDigits[group >> (18 - 6 * j) & 0x3fU] : '=';
    }
    return text;
}

std::string_view curve_colour(size_t number)
{
    return kColours[number % kColours.size()];
}

TReport report_of_dump(const std::string &folder, const TDump &dump)
{
    TReport report;
    report.title = "Recorder report, from a dump";
    report.facts.emplace_back("dump", folder);
    add_cpu(dump.cpu, &report);
    add_memory(dump.mem, &report);
    add_io(dump, &report);
    const auto cores = std::count_if(dump.cpu.begin(), dump.cpu.end(), [](const TDumpEntity &one) {
        return is_system_key(one.name) && one.name != "system_all";
    });
    report.facts.emplace_back("cores", std::to_string(cores));
    add_oddities(dump, &report);
    return report;
}

std::string picture_script(const TPicture &picture)
{
    constexpr int64_t kShortS = 600; // here the marks of the axis are less than a minute apart
    auto [first, last] = std::pair(std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min());
    for (const TCurve &one : picture.curves) {
        for (const auto &point : one.points)
            std::tie(first, last) = std::pair(std::min(first, point.first), std::max(last, point.first));
    }
    const std::string format = last - kShortS < first ? "%H:%M:%S" : "%H:%M";
    std::string script =
        "set terminal svg size 900,260 dynamic font 'sans-serif,12' background '#ffffff'\n"
        "set xdata time\nset timefmt '%s'\nset xlabel 'UTC'\n"
        "set grid lc rgb '#dddddd'\nset border 3\nset rmargin 5\nset tics nomirror\nset yrange [0:*]\nunset key\n"
        "set datafile missing 'none'\nset format x '" +
        format + "'\n";
    std::string plots;
    for (size_t i = 0; i < picture.curves.size(); ++i) {
        const std::string name = "$curve" + std::to_string(i);
        script += name + " << end_of_curve\n";
        for (const auto &[time, value] : picture.curves[i].points)
            script += std::to_string(time) + " " + (value ? std::to_string(*value) : "none") + "\n";
        script += "end_of_curve\n";
        plots += (plots.empty() ? "plot " : ", ") + name + " using 1:2 with linespoints lw 2 pt 7 ps 0.2 lc rgb '" +
                 std::string(curve_colour(i)) + "'";
    }
    return script + plots + "\n";
}

std::string report_page(const TReport &report, const std::vector<std::string> &svgs)
{
    std::string html = "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8>\n"
                       "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
                       "style-src 'unsafe-inline'\">\n<meta name=viewport content=\"width=device-width\">\n"
                       "<link rel=icon href=\"data:,\"><title>" +
                       html_text(report.title) + "</title><style>" + std::string(kStyle) +
                       "</style></head><body>\n<h1>" + html_text(report.title) + "</h1>\n<table>\n";
    for (const auto &[name, value] : report.facts)
        html += "<tr><th>" + html_text(name) + td(value, false) + "</tr>\n";
    html += "</table>\n<h2>Alarms</h2>\n";
    if (report.alarms.empty())
        html += "<p class=good>None.</p>\n";
    for (const TSpan &one : report.alarms)
        html +=
            std::string("<p class=") + (one.tone == TTone::kBad ? "bad>" : "warn>") + html_text(one.text) + "</p>\n";
    for (size_t i = 0; i < report.pictures.size(); ++i) {
        const TPicture &picture = report.pictures[i];
        html += "<h2>" + html_text(picture.title) + "</h2>\n<img alt=\"" + html_text(picture.title) +
                "\" src=\"data:image/svg+xml;base64," + base64_text(svgs[i]) + "\">\n" + legend(picture);
    }
    for (const auto &[title, table] : report.tables)
        html += "<h2>" + html_text(title) + "</h2>\n" + html_table(table);
    return html + "</body></html>\n";
}
