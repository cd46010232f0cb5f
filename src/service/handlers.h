#pragma once

#include <memory>

#include "platform/httpserver.hpp"

/* The handlers behind the routes of the query service. They hold no state and
 * take no lock: each reads its arguments, calls one monitor, and answers with
 * status 200, errors included. They run on the service's request threads. */
using T_RESPONSE = std::shared_ptr<httpserver::http_response>;

T_RESPONSE proc_status_get(const httpserver::http_request &request);
T_RESPONSE proc_cpu_get(const httpserver::http_request &request);
T_RESPONSE proc_mem_get(const httpserver::http_request &request);
T_RESPONSE proc_net_get(const httpserver::http_request &request);
T_RESPONSE proc_dsk_get(const httpserver::http_request &request);
T_RESPONSE proc_smart_get(const httpserver::http_request &request);
T_RESPONSE proc_syshealth_get(const httpserver::http_request &request);
T_RESPONSE proc_recording_state_get(const httpserver::http_request &request);
T_RESPONSE proc_cam_conn_get(const httpserver::http_request &request);
T_RESPONSE proc_statistics_dump_get(const httpserver::http_request &request);
T_RESPONSE proc_notify_put(const httpserver::http_request &request);
T_RESPONSE proc_banip_mgr_put(const httpserver::http_request &request);
