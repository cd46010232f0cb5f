#pragma once

#include <memory>

#include "platform/httpserver.hpp"

/* The handlers behind the routes of the query service. But for the text of "status",
 * which is made once, they hold no state and take no lock: each reads its arguments,
 * calls one monitor, and answers with status 200, errors included. They run on the
 * service's request threads. */
using TResponse = std::shared_ptr<httpserver::http_response>;

TResponse proc_status_get(const httpserver::http_request &request);
TResponse proc_cpu_get(const httpserver::http_request &request);
TResponse proc_mem_get(const httpserver::http_request &request);
TResponse proc_net_get(const httpserver::http_request &request);
TResponse proc_dsk_get(const httpserver::http_request &request);
TResponse proc_smart_get(const httpserver::http_request &request);
TResponse proc_syshealth_get(const httpserver::http_request &request);
TResponse proc_recording_state_get(const httpserver::http_request &request);
TResponse proc_cam_conn_get(const httpserver::http_request &request);
TResponse proc_statistics_dump_get(const httpserver::http_request &request);
TResponse proc_notify_put(const httpserver::http_request &request);
TResponse proc_banip_mgr_put(const httpserver::http_request &request);
