#include "service/handlers.h"

#include <algorithm>
#include <array>
#include <new>
#include <string>
#include <utility>

#include "base/mutex.h"
#include "common/trace.h"
#include "core/VeloMond.h"
#include "health/sysstat_smart.h"
#include "health/sysstat_syshealth.h"
#include "service/envelope.h"
#include "stats/process_table.h"
#include "stats/sysstat_cpu.h"
#include "stats/sysstat_disk.h"
#include "stats/sysstat_memory.h"
#include "stats/sysstat_net.h"
#include "surveillance/recording_stat.h"
#include "surveillance/sysstat_camconn.h"

namespace {

constexpr const char *kSource = "VeloMond_RESTful";

/* An argument of the query string as a monitor sees it: what a buffer of `size`
 * bytes holds of it; empty when it was not given. */
std::string argument(const httpserver::http_request &request, const char *name, size_t size)
{
    std::string text = request.get_arg(name);
    text.resize(std::min({text.size(), text.find('\0'), size - 1}));
    return text;
}

/* Calls a monitor and wraps its result. */
template <typename TOperation> TResponse answer(TOperation operation)
{
    json_object *value = nullptr; // set last, so that an operation that throws leaves none
    const int result = operation(&value);
    return json_response(envelope_text(result, value));
}

/* The statistics kinds all take the method, a count and the name of an entity. */
using TStatProc = int (*)(const char *method, const char *type, const char *name, json_object **out);

TResponse answer_statistics(const httpserver::http_request &request, TStatProc proc, const char *name_argument,
                            size_t text_size)
{
    const std::string method = argument(request, "method", text_size);
    const std::string type = argument(request, "type", 32);
    const std::string name = argument(request, name_argument, text_size);
    return answer([&](json_object **out) { return proc(method.c_str(), type.c_str(), name.c_str(), out); });
}

/* The value that a monitor sets as its output; null without one. */
TJson informed(json_object *value, int (*info)(json_object **out))
{
    TJson owner(value);
    if (owner == nullptr)
        throw std::bad_alloc();
    info(&value);
    return owner;
}

/* The information operations behind "status", in the order of their calls. */
constexpr int (*kStatusInfo[])(json_object **out) = {sysstat_cpu_info, sysstat_memory_info, sysstat_disk_info,
                                                     sysstat_net_info};

/* *complete: none of its parts is missing for want of memory. */
TResponse make_status(bool *complete)
{
    TJson cpu = informed(json_object_new_object(), kStatusInfo[0]);
    TJson memory = informed(json_object_new_object(), kStatusInfo[1]);
    TJson disk = informed(json_object_new_array(), kStatusInfo[2]);
    TJson network = informed(json_object_new_array(), kStatusInfo[3]);

    TJson daemons(json_object_new_array());
    const int result = daemons != nullptr ? 0 : -1;
    *complete = result == 0;
    if (daemons != nullptr) {
        for (const char *name : kProcessTable)
            json_append_text(daemons.get(), name);
    }
    const TJson root(json_object_new_object());
    json_give(root.get(), "return", TJson(json_object_new_int(result)));
    json_give(root.get(), "cpu_info", std::move(cpu));
    json_give(root.get(), "mem_info", std::move(memory));
    json_give(root.get(), "disk_info", std::move(disk));
    json_give(root.get(), "network_info", std::move(network));
    if (result == 0)
        json_give(root.get(), "daemon_list", std::move(daemons));
    else
        (void)json_object_object_add(root.get(), "daemon_list", nullptr); // null: it has all its keys
    return json_response(json_text(root.get()));
}

/* What "status" names is fixed when the managers are made, so the answer is made
 * once for them, not once for each request. */
using TStatusOf = std::array<unsigned, 4>; // serial numbers of the managers; 0: there is none

TStatusOf status_of()
{
    const auto serial = [](const auto *manager) { return manager != nullptr ? manager->serial() : 0; };
    return {serial(g_p_CpustatManager), serial(g_p_MemorystatManager), serial(g_p_DiskstatManager),
            serial(g_p_NetstatManager)};
}

struct {
    TMutex lock;
    TStatusOf of GUARDED_BY(lock) = {};
    TResponse response GUARDED_BY(lock);
} g_status;

} // namespace

TResponse proc_cpu_get(const httpserver::http_request &request)
{
    return answer_statistics(request, sysstat_cpu_proc, "name", 64);
}

TResponse proc_mem_get(const httpserver::http_request &request)
{
    return answer_statistics(request, sysstat_memory_proc, "name", 64);
}

TResponse proc_net_get(const httpserver::http_request &request)
{
    return answer_statistics(request, sysstat_net_proc, "if_name", 32);
}

TResponse proc_dsk_get(const httpserver::http_request &request)
{
    trace(kSource, "proc_dsk_get", 169);
    return answer_statistics(request, sysstat_disk_proc, "vol_name", 32);
}

TResponse proc_smart_get(const httpserver::http_request &request)
{
    const std::string method = argument(request, "method", 32);
    return answer([&](json_object **out) { return sysstat_smart_proc(method.c_str(), out); });
}

TResponse proc_syshealth_get(const httpserver::http_request &request)
{
    const std::string method = argument(request, "method", 32);
    return answer([&](json_object **out) { return sysstat_syshealth_proc(method.c_str(), out); });
}

TResponse proc_cam_conn_get(const httpserver::http_request &request)
{
    const std::string method = argument(request, "method", 32);
    const std::string count = argument(request, "count", 32);
    return answer([&](json_object **out) { return sysstat_camconn_proc(method.c_str(), count.c_str(), out); });
}

TResponse proc_recording_state_get(const httpserver::http_request & /*request*/)
{
    trace(kSource, "proc_recording_state_get", 504);
    const TJson state = informed(json_object_new_object(), recording_stat_info);
    return json_response(json_text(state.get()));
}

TResponse proc_status_get(const httpserver::http_request & /*request*/)
{
    const TStatusOf now = status_of();
    TResponse known;
    {
        const TLock lock(g_status.lock);
        if (g_status.of == now)
            known = g_status.response;
    }
    if (known == nullptr) {
        bool complete = false;
        known = make_status(&complete);
        const TLock lock(g_status.lock);
        if (complete) {
            g_status.of = now;
            g_status.response = known;
        }
        return known;
    }
    /* Each request is to be seen in what the operations trace. */
    json_object *no_output = nullptr;
    for (const auto info : kStatusInfo)
        info(&no_output);
    return known;
}

TResponse proc_statistics_dump_get(const httpserver::http_request & /*request*/)
{
    return json_response(envelope_text(VeloMond_statistics_dump(), nullptr));
}

TResponse proc_banip_mgr_put(const httpserver::http_request & /*request*/)
{
    const TJson root(json_object_new_object());
    json_give(root.get(), "return", TJson(json_object_new_int(-1)));
    json_give_text(root.get(), "data", "function not support.");
    return json_response(json_text(root.get()));
}
