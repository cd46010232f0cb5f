#include "service/VeloMond_RESTful.h"

#include <cstring>
#include <exception>

#include "common/trace.h"
#include "platform/ssci.h"
#include "service/envelope.h"
#include "service/handlers.h"

namespace {

constexpr const char *kSource = "VeloMond_RESTful";
constexpr const char *kService = "sysmonService";
constexpr int kPort = 10191;
constexpr int kNameServerPort = 10182;
constexpr int kWorkers = 2;

#define ROUTE(path) "/sysmonService/" path

/* Runs a handler for a platform that does not expect exceptions. One that throws (most
 * likely out of memory) answers as a failed operation does. */
TResponse run_handler(const char *name, ssci_handler handler, const httpserver::http_request &request)
{
    try {
        return handler(request);
    } catch (const std::exception &failure) {
        write_stderr("%s:%s failed: %s\n", kSource, name, failure.what());
    }
    return json_response(handler == proc_notify_put ? "{ \"retCode\": -1 }" : envelope_text(-1, nullptr));
}

#define HANDLER(name) [](const httpserver::http_request &request) { return run_handler(#name, name, request); }

common_service_resource g_service(kService, service_health_check, 32);

/* In the order of registration. */
common_http_resource g_routes[] = {
    {ROUTE("status"), HANDLER(proc_status_get)},
    {ROUTE("cpu_info"), HANDLER(proc_cpu_get)},
    {ROUTE("mem_info"), HANDLER(proc_mem_get)},
    {ROUTE("network_info"), HANDLER(proc_net_get)},
    {ROUTE("disk_info"), HANDLER(proc_dsk_get)},
    {ROUTE("statistics_dump"), HANDLER(proc_statistics_dump_get)},
    {ROUTE("Notify"), nullptr, HANDLER(proc_notify_put)},
    {ROUTE("smart_info"), HANDLER(proc_smart_get)},
    {ROUTE("syshealth_info"), HANDLER(proc_syshealth_get)},
    {ROUTE("recording_state"), HANDLER(proc_recording_state_get)},
    {ROUTE("cam_conn"), HANDLER(proc_cam_conn_get)},
    {ROUTE("banip_mgr"), nullptr, HANDLER(proc_banip_mgr_put)},
};

/* Notices of other services come in through it; null while the service is down.
 * Only the thread that starts and stops the service touches it. */
TNotifySessionManager *g_session = nullptr;

int ntf_init()
{
    trace(kSource, "ntf_init", 639);
    g_session = new TNotifySessionManager(kService, ROUTE("Notify"));
    /* Without it notices do not arrive, but queries are answered. */
    if (const int error = g_session->run(); error != 0)
        write_stderr("the notification session cannot be started: error %d\n", error);
    return 0;
}

void ntf_uninit()
{
    trace(kSource, "ntf_uninit", 646);
    if (g_session == nullptr) // the service never came up
        return;
    g_session->m_terminate = true;
    g_session->stop(0);
    g_session->wait();
    delete g_session;
    g_session = nullptr;
}

} // namespace

bool service_health_check(char *buffer, size_t size)
{
    if (size == 0)
        return true;
    /* The library may send the whole buffer, so the rest of it is cleared. */
    strncpy(buffer, "health", size - 1);
    buffer[size - 1] = '\0';
    return true;
}

int sysmon_service_init()
{
    long long result =
        ssci_server_create(kService, "localhost", kPort, kWorkers, "localhost", kNameServerPort, false, 0, "");
    if (result != 0) {
        write_stderr("ssci_server_create failed, ret=[%lld]\n exit.\n", result);
        return -1;
    }
    result = ssci_server_start();
    if (result != 0) {
        write_stderr("ssci_server_start failed, ret=[%lld]\n exit.\n", result);
        return -2;
    }
    return ntf_init();
}

int sysmon_service_uninit()
{
    ntf_uninit();
    long long result = ssci_server_stop();
    if (result != 0) {
        write_stderr("ssci_server_stop failed, ret=[%lld]\n exit.\n", result);
        return -1;
    }
    result = ssci_server_destory();
    if (result != 0) {
        write_stderr("ssci_server_destory failed, ret=[%lld]\n exit.\n", result);
        return -2;
    }
    return 0;
}
