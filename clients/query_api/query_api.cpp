#include "query_api/query_api.h"

#include <utility>

namespace {

const std::string kService = "/sysmonService/";

struct TRoute {
    const char *path;
    const char *name_argument;
};

TRoute route_of(TKind kind)
{
    switch (kind) {
    case TKind::kCpu:
    case TKind::kCpuService:
        return {"cpu_info", "name"};
    case TKind::kMemory:
    case TKind::kMemoryService:
        return {"mem_info", "name"};
    case TKind::kNetwork:
        return {"network_info", "if_name"};
    case TKind::kDisk:
        break;
    }
    return {"disk_info", "vol_name"};
}

/* Prefixes the message with the route. */
TOutcome of_route(TOutcome outcome, const char *route)
{
    if (!outcome.ok())
        outcome.text = std::string(route) + ": " + outcome.text;
    return outcome;
}

} // namespace

TQueryApi::TQueryApi(TAddress address) : m_http(std::move(address)) {}

void TQueryApi::begin(std::chrono::milliseconds budget)
{
    m_http.begin(budget);
}

TOutcome TQueryApi::get(const char *route, const TArguments &arguments, std::string *answer)
{
    return m_http.request(kService + route, arguments, nullptr, answer);
}

template <typename TValue>
TOutcome TQueryApi::ask(const char *route, const TArguments &arguments, TOutcome (*take)(std::string_view, TValue *),
                        TValue *out)
{
    std::string answer;
    TOutcome outcome = get(route, arguments, &answer);
    return outcome.ok() ? of_route(take(answer, out), route) : outcome;
}

TOutcome TQueryApi::status(TStatus *out)
{
    return ask("status", {}, answer_status, out);
}

TOutcome TQueryApi::statistics(TKind kind, const std::string &name, const char *method, const std::string &type,
                               std::string *answer)
{
    const TRoute route = route_of(kind);
    return get(route.path, {{"method", method}, {"type", type}, {route.name_argument, name}}, answer);
}

TOutcome TQueryApi::figures(TKind kind, const std::string &name, std::optional<unsigned> intervals, TFigures *out)
{
    std::string answer;
    TOutcome outcome =
        statistics(kind, name, intervals ? "avg" : "cur_data", std::to_string(intervals.value_or(0)), &answer);
    return outcome.ok() ? of_route(answer_figures(answer, kind, intervals.has_value(), out), route_of(kind).path)
                        : outcome;
}

TOutcome TQueryApi::series(TKind kind, const std::string &name, TSeries *out)
{
    std::string answer;
    TOutcome outcome = statistics(kind, name, "line_data", "0", &answer);
    return outcome.ok() ? of_route(answer_series(answer, kind, out), route_of(kind).path) : outcome;
}

TOutcome TQueryApi::disks(TStateAt *out)
{
    return ask("smart_info", {{"method", "disk_update"}}, answer_disks, out);
}

TOutcome TQueryApi::fans(TStateAt *out)
{
    return ask("syshealth_info", {{"method", "fan_update"}}, answer_fans, out);
}

TOutcome TQueryApi::recording(TStateAt *out)
{
    return ask("recording_state", {}, answer_recording, out);
}

TOutcome TQueryApi::hardware(std::string *out)
{
    return ask("syshealth_info", {{"method", "sys_health"}}, answer_hardware, out);
}

TOutcome TQueryApi::cameras(std::optional<unsigned> minutes, TCameraStat *out)
{
    return ask("cam_conn", {{"method", minutes ? "total" : "cur_data"}, {"count", std::to_string(minutes.value_or(0))}},
               answer_cameras, out);
}

TOutcome TQueryApi::channels(std::vector<TChannel> *out)
{
    return ask("cam_conn", {{"method", "channel_info"}}, answer_channels, out);
}

TOutcome TQueryApi::dump()
{
    std::string answer;
    TOutcome outcome = get("statistics_dump", {}, &answer);
    return outcome.ok() ? of_route(answer_done(answer, "return"), "statistics_dump") : outcome;
}

TOutcome TQueryApi::notify(int type)
{
    const std::string body = R"({"notice_reason":{"type":)" + std::to_string(type) + R"(,"action":1}})";
    std::string answer;
    TOutcome outcome = m_http.request(kService + "Notify", {}, &body, &answer);
    return outcome.ok() ? of_route(answer_done(answer, "retCode"), "Notify") : outcome;
}
