#pragma once

#include <cstddef>

/* The query service `sysmonService` on the loopback port 10191. */

/* Brings it up: server, then the session that delivers notices. 0; -1 when the
 * server cannot be created, -2 when it cannot be started. */
int sysmon_service_init();

/* Takes it down in the opposite order; when it returns no handler runs any more.
 * 0; -1 when the server cannot be stopped, -2 when it cannot be destroyed. */
int sysmon_service_uninit();

/* Reports to the service library that the service is alive: "health", cut to the
 * buffer and filled up with NULs; writes nothing if `size` is 0. Always true. */
bool service_health_check(char *buffer, size_t size);
