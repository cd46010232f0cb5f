#include "velomondctl/top_frame.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "query_api/clean_text.h"

namespace {

constexpr size_t kPoints = 15;
constexpr const char *kAll = "system_all";

std::vector<TFigure> points_of(const TSeries &series, const char *key)
{
    const std::vector<TFigure> *const points = series.get(key);
    return points != nullptr ? *points : std::vector<TFigure>();
}

/* The sum of two rows; missing if either is. */
std::vector<TFigure> summed(const std::vector<TFigure> &a, const std::vector<TFigure> &b)
{
    std::vector<TFigure> sum(std::min(a.size(), b.size()));
    for (size_t i = 0; i < sum.size(); ++i)
        sum[i] = a[i] && b[i] ? TFigure(*a[i] + *b[i]) : TFigure();
    return sum;
}

std::string percent_text(const TFigure &value)
{
    return number_text(cell(value)) + " %";
}

TOutcome fetch_machine(TQueryApi *api, const TSnapshot &now, std::vector<TTrend> *out)
{
    std::vector<std::pair<std::string, const TFigures *>> cores = {{kAll, &now.cpu}};
    for (const auto &one : now.cores)
        cores.emplace_back(one.name, &one.now);
    TSeries series;
    for (const auto &[name, figures] : cores) {
        TOutcome outcome = api->series(TKind::kCpu, name, &series);
        if (!outcome.ok())
            return outcome;
        TTrend trend{name == kAll ? "cpu" : name, points_of(series, "idle_pcnt"), "", 100};
        for (TFigure &point : trend.points)
            point = point ? TFigure(100 - *point) : point;
        trend.value = percent_text(cpu_busy_percent(*figures));
        out->push_back(std::move(trend));
    }
    TOutcome outcome = api->series(TKind::kMemory, kAll, &series);
    if (!outcome.ok())
        return outcome;
    TTrend memory{"memory", points_of(series, "MemAvailable"), percent_text(memory_used_percent(now.memory)), 100};
    const std::vector<TFigure> total = points_of(series, "MemTotal");
    for (size_t i = 0; i < memory.points.size(); ++i) {
        TFigure &point = memory.points[i];
        point = point && total[i] && *total[i] > 0 ? TFigure(100 * (*total[i] - *point) / *total[i]) : TFigure();
    }
    out->insert(out->begin() + 1, std::move(memory));
    return {};
}

TOutcome fetch_traffic(TQueryApi *api, const TSnapshot &now, std::vector<TTrend> *out)
{
    TSeries series;
    for (const auto &one : now.interfaces) {
        TOutcome outcome = api->series(TKind::kNetwork, one.name, &series);
        if (!outcome.ok())
            return outcome;
        const TFigure tx = one.now.get("tx");
        const TFigure rx = one.now.get("rx");
        out->push_back({one.name, summed(points_of(series, "tx"), points_of(series, "rx")),
                        tx && rx ? size_text((*tx + *rx) / 10) + "/s" : "-", 0});
    }
    for (const auto &one : now.devices) {
        TOutcome outcome = api->series(TKind::kDisk, one.name, &series);
        if (!outcome.ok())
            return outcome;
        const TFigure throughput = one.now.get("throughput");
        out->push_back({one.name.substr(one.name.rfind('/') + 1), points_of(series, "throughput"),
                        throughput ? size_text(*throughput * 102.4) + "/s" : "-", 0});
    }
    return {};
}

TOutcome fetch_services(TQueryApi *api, const TSnapshot &now, std::vector<TTopService> *out)
{
    TSeries series;
    for (const TSnapshot::TService &one : now.services) {
        if (!one.runs())
            continue;
        TTopService service{one.name, one.cpu.get("total_pcnt"), one.memory.get("VmRSS"), {}, {}};
        TOutcome outcome = api->series(TKind::kCpuService, one.name, &series);
        if (outcome.ok()) {
            service.cpu = points_of(series, "total_pcnt");
            outcome = api->series(TKind::kMemoryService, one.name, &series);
        }
        if (!outcome.ok())
            return outcome;
        service.resident = points_of(series, "VmRSS");
        out->push_back(std::move(service));
    }
    return {};
}

/* Builds a line of limited width. */
class TBuilder {
public:
    explicit TBuilder(size_t columns) : m_left(columns) {}
    void add(const std::string &text, TTone tone = TTone::kPlain)
    {
        const size_t width = text_columns(text);
        m_line.push_back({width <= m_left ? text : text_fitted(text, m_left), tone});
        m_left -= std::min(width, m_left);
    }
    size_t left() const { return m_left; }
    TTopLine line() { return std::move(m_line); }

private:
    TTopLine m_line;
    size_t m_left;
};

TTopLine line_of(size_t columns, const std::string &text, TTone tone = TTone::kPlain)
{
    TBuilder builder(columns);
    builder.add(text, tone);
    return builder.line();
}

void add_trend(const TTrend &trend, size_t width, bool utf8, TBuilder *builder)
{
    constexpr size_t kValue = 10;
    constexpr size_t kName = 9;
    constexpr size_t kAround = kValue + 4; // with the blanks
    const size_t points = std::min(kPoints, width > kName + kAround ? width - kName - kAround : 0);
    const size_t name = width > points + kAround ? width - points - kAround : 1;
    builder->add(text_fitted(trend.name, name) + " ");
    builder->add(sparkline(trend.points, trend.scale, points, utf8), TTone::kGood);
    builder->add(" " + text_fitted(trend.value, kValue, true) + "  ");
}

/* Trends side by side: those of the machine left, the traffic right. */
void add_trends(const TTopData &data, const TTopView &view, size_t room, std::vector<TTopLine> *lines)
{
    constexpr size_t kWidest = 64; // names stay near their bars
    const size_t half = std::min(view.columns / 2, kWidest);
    const size_t rows = std::min(room, std::max(data.machine.size(), data.traffic.size()));
    const auto count_shown = [&](const std::vector<TTrend> &all) {
        return all.size() > rows && rows > 0 ? rows - 1 : std::min(rows, all.size());
    };
    const auto add = [&](const std::vector<TTrend> &all, size_t row, TBuilder *builder) {
        if (row < count_shown(all))
            add_trend(all[row], half, view.utf8, builder);
        else if (row == count_shown(all) && row < all.size())
            builder->add(text_fitted("... and " + std::to_string(all.size() - row) + " more", half), TTone::kDim);
        else
            builder->add(std::string(half, ' '));
    };
    for (size_t row = 0; row < rows; ++row) {
        TBuilder builder(view.columns);
        add(data.machine, row, &builder);
        add(data.traffic, row, &builder);
        lines->push_back(builder.line());
    }
}

/* A mark per channel up to the last configured one, with a blank after every ten. */
std::vector<TTopLine> camera_lines(const TTopData &data, const TTopView &view)
{
    const auto &states = data.now.cameras.state;
    size_t count = 0;
    for (size_t id = 0; id < states.size(); ++id)
        count = states[id] != TCamera::kAbsent ? id + 1 : count;
    const size_t per_line = view.columns > 31 ? (view.columns - 9) / 11 * 10 : 20;
    std::vector<TTopLine> lines;
    for (size_t begin = 0; begin < count; begin += per_line) {
        TBuilder builder(view.columns);
        builder.add(text_fitted(begin == 0 ? "cameras" : "", 8) + " ");
        for (size_t id = begin; id < std::min(count, begin + per_line); ++id) {
            if (id > begin && id % 10 == 0)
                builder.add(" ");
            if (states[id] == TCamera::kAbsent)
                builder.add(view.utf8 ? "\u00b7" : ".", TTone::kDim);
            else if (states[id] == TCamera::kConnected)
                builder.add(view.utf8 ? "\u25cf" : "o", TTone::kGood);
            else
                builder.add("X", TTone::kBad);
        }
        lines.push_back(builder.line());
    }
    return lines;
}

void add_services(const TTopData &data, const TTopView &view, size_t room, std::vector<TTopLine> *lines)
{
    if (room < 2)
        return;
    const auto head = [&](const char *name, TTopSort sort) {
        return std::string(name) + (view.sort == sort ? (view.utf8 ? "\u25be" : "*") : "");
    };
    std::vector<const TTopService *> sorted;
    for (const TTopService &one : data.services)
        sorted.push_back(&one);
    std::stable_sort(sorted.begin(), sorted.end(), [&view](const TTopService *a, const TTopService *b) {
        switch (view.sort) {
        case TTopSort::kMemory:
            return a->resident_kb.value_or(0) > b->resident_kb.value_or(0);
        case TTopSort::kName:
            return a->name < b->name;
        case TTopSort::kCpu:
            break;
        }
        return a->cpu_percent.value_or(0) > b->cpu_percent.value_or(0);
    });
    constexpr size_t kName = 16;
    constexpr size_t kValue = 9;
    TBuilder title(view.columns);
    title.add(text_fitted(head("SERVICE", TTopSort::kName), kName) + " " +
                  text_fitted(head("CPU", TTopSort::kCpu), kValue, true) + "  " + text_fitted("15 MINUTES", kPoints) +
                  " " + text_fitted(head("MEMORY", TTopSort::kMemory), kValue, true) + "  " +
                  text_fitted("15 MINUTES", kPoints),
              TTone::kBold);
    lines->push_back(title.line());
    for (size_t i = 0; i < std::min(room - 1, sorted.size()); ++i) {
        const TTopService &one = *sorted[i];
        const TFigure bytes = one.resident_kb ? TFigure(*one.resident_kb * 1024) : TFigure();
        TBuilder builder(view.columns);
        builder.add(text_fitted(one.name, kName) + " " + text_fitted(percent_text(one.cpu_percent), kValue, true) +
                    "  ");
        builder.add(sparkline(one.cpu, 0, kPoints, view.utf8), TTone::kGood);
        builder.add(" " + text_fitted(size_text(bytes), kValue, true) + "  ");
        builder.add(sparkline(one.resident, 0, kPoints, view.utf8), TTone::kGood);
        lines->push_back(builder.line());
    }
}

void add_help(const TTopView &view, std::vector<TTopLine> *lines)
{
    for (const char *text : {"", "  c   services by CPU", "  m   services by memory", "  n   services by name",
                             "  r   refresh now", "  h   this help", "  q   quit", "",
                             "  Bars are the last 15 minutes, a minute each, the newest on the right; those of cores",
                             "  and memory are shares, the others are full at their largest. Cameras: a mark per",
                             "  channel, X failed to connect. The monitor samples every 10 seconds."})
        lines->push_back(line_of(view.columns, text));
}

} // namespace

TOutcome top_fetch(TQueryApi *api, int64_t utc_s, TTopData *out)
{
    TTopData taken;
    TOutcome outcome = snapshot_fetch(api, &taken.now);
    if (outcome.ok())
        outcome = fetch_machine(api, taken.now, &taken.machine);
    if (outcome.ok())
        outcome = fetch_traffic(api, taken.now, &taken.traffic);
    if (outcome.ok())
        outcome = fetch_services(api, taken.now, &taken.services);
    if (!outcome.ok()) {
        out->fault = outcome.text;
        return outcome;
    }
    taken.place = out->place;
    taken.utc_s = utc_s;
    *out = std::move(taken);
    return {};
}

std::string sparkline(const std::vector<TFigure> &newest_first, double scale, size_t width, bool utf8)
{
    constexpr std::array kBars = {"\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"};
    constexpr std::array kPlain = {"_", ".", ":", "-", "=", "+", "*", "#"};
    double full = scale;
    if (full <= 0) {
        for (const TFigure &point : newest_first)
            full = std::max(full, point.value_or(0));
    }
    std::string text;
    for (size_t i = width; i-- > 0;) {
        if (i >= newest_first.size() || !newest_first[i]) {
            text += ' ';
            continue;
        }
        const double share = full > 0 ? std::clamp(*newest_first[i] / full, 0.0, 1.0) : 0;
        const auto step = std::min<size_t>(static_cast<size_t>(share * kBars.size()), kBars.size() - 1);
        text += utf8 ? kBars[step] : kPlain[step];
    }
    return text;
}

std::vector<TSpan> top_alarms(const TTopData &data)
{
    std::vector<TSpan> alarms;
    const TSnapshot &now = data.now;
    if (!data.fault.empty())
        alarms.push_back({data.fault, TTone::kBad});
    if (data.utc_s == 0)
        return alarms;
    if (now.recording.state != "normal")
        alarms.push_back({now.recording.utc_s == 0 ? "recording state unknown" : "no camera is recorded",
                          now.recording.utc_s == 0 ? TTone::kWarning : TTone::kBad});
    if (now.fans.state != "normal")
        alarms.push_back({"a fan has failed", TTone::kBad});
    if (now.disks.state != "normal")
        alarms.push_back({"disks: " + now.disks.state, tone_of_state(now.disks.state)});
    for (size_t id = 0; id < now.cameras.state.size(); ++id) {
        if (now.cameras.state[id] == TCamera::kFailed)
            alarms.push_back({"camera " + channel_name(now, id) + " not connected", TTone::kWarning});
    }
    return alarms;
}

std::vector<TTopLine> top_frame(const TTopData &data, const TTopView &view)
{
    std::vector<TTopLine> lines;
    TBuilder title(view.columns);
    title.add("VeloMond ", TTone::kBold);
    title.add(data.place + "  " + (data.utc_s != 0 ? time_text(data.utc_s) : "no answer yet"));
    lines.push_back(title.line());

    TBuilder states(view.columns);
    if (data.utc_s != 0) {
        const size_t failed = data.now.cameras_failed();
        for (const auto &[label, state] : {std::pair("disks ", &data.now.disks),
                                           {"   fans ", &data.now.fans},
                                           {"   recording ", &data.now.recording}}) {
            states.add(label);
            states.add(state->state, tone_of_state(state->state));
        }
        states.add("   cameras ");
        states.add(std::to_string(data.now.cameras_there() - failed) + " of " +
                       std::to_string(data.now.cameras_there()),
                   failed > 0 ? TTone::kBad : TTone::kGood);
    }
    lines.push_back(states.line());

    TBuilder alarms(view.columns);
    for (const TSpan &one : top_alarms(data)) {
        if (alarms.left() < 4)
            break;
        alarms.add(one.text, one.tone);
        alarms.add("  ");
    }
    TTopLine shown = alarms.line();
    lines.push_back(!shown.empty() || data.utc_s == 0 ? std::move(shown)
                                                      : line_of(view.columns, "no alarms", TTone::kGood));

    const auto room = [&] { return view.lines > lines.size() + 1 ? view.lines - lines.size() - 1 : 0; };
    if (view.help) {
        add_help(view, &lines);
    } else {
        /* The services get the remaining lines, at least five. */
        const size_t kept = std::min<size_t>(data.services.size() + 2, 6);
        std::vector<TTopLine> cameras = camera_lines(data, view);
        const size_t taken = kept + cameras.size();
        add_trends(data, view, room() > taken ? room() - taken : 0, &lines);
        std::move(cameras.begin(), cameras.end(), std::back_inserter(lines));
        lines.emplace_back();
        add_services(data, view, room(), &lines);
    }
    lines.resize(view.lines > 0 ? view.lines - 1 : 0);
    if (view.lines > 0)
        lines.push_back(line_of(view.columns, "q quit  c m n sort  r refresh  h help", TTone::kDim));
    return lines;
}
