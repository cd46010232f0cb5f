#include "service/handlers.h"

#include <algorithm>
#include <string>

#include "common/trace.h"
#include "core/VeloMond.h"
#include "service/envelope.h"
#include "stats/process_table.h"
#include "stats/sysstat_cpu.h"

namespace {

/* An argument of the query string as a monitor sees it: what a buffer of `size`
 * bytes holds of it; empty when it was not given. */
std::string argument(const httpserver::http_request &request, const char *name, size_t size)
{
    std::string text = request.get_arg(name);
    text.resize(std::min({text.size(), text.find('\0'), size - 1}));
    return text;
}

/* Has a monitor answer and wraps what it says. */
template <typename OPERATION> T_RESPONSE answer(OPERATION operation)
{
    json_object *out = nullptr;
    const int result = operation(&out);
    return json_response(envelope_text(result, out));
}

/* The statistics kinds all take the method, a count and the name of an entity. */
using T_STAT_PROC = int (*)(const char *method, const char *type, const char *name, json_object **out);

T_RESPONSE answer_statistics(const httpserver::http_request &request, T_STAT_PROC proc, const char *name_argument,
                             size_t text_size)
{
    const std::string method = argument(request, "method", text_size);
    const std::string type = argument(request, "type", 32);
    const std::string name = argument(request, name_argument, text_size);
    return answer([&](json_object **out) { return proc(method.c_str(), type.c_str(), name.c_str(), out); });
}

} // namespace

T_RESPONSE proc_cpu_get(const httpserver::http_request &request)
{
    return answer_statistics(request, sysstat_cpu_proc, "name", 64);
}

T_RESPONSE proc_status_get(const httpserver::http_request & /*request*/)
{
    TJson cpu(json_object_new_object());
    json_object *cpu_out = cpu.get();
    sysstat_cpu_info(&cpu_out);

    TJson daemons(json_object_new_array());
    const int result = daemons != nullptr ? 0 : -1;
    if (daemons != nullptr) {
        for (const char *name : kProcessTable)
            json_append_text(daemons.get(), name);
    }
    const TJson root(json_object_new_object());
    json_give(root.get(), "return", TJson(json_object_new_int(result)));
    json_give(root.get(), "cpu_info", std::move(cpu));
    json_give(root.get(), "daemon_list", std::move(daemons));
    return json_response(json_text(root.get()));
}

T_RESPONSE proc_statistics_dump_get(const httpserver::http_request & /*request*/)
{
    return json_response(envelope_text(VeloMond_statistics_dump(), nullptr));
}

T_RESPONSE proc_banip_mgr_put(const httpserver::http_request & /*request*/)
{
    const TJson root(json_object_new_object());
    json_give(root.get(), "return", TJson(json_object_new_int(-1)));
    json_give_text(root.get(), "data", "function not support.");
    return json_response(json_text(root.get()));
}
