#pragma once

#include <cstdint>

#include "platform/pal.h"

/* Calls of the platform access layer, whose failures a monitor writes to its debug log. */

/* Whether a call failed; if so, it is logged as "function(line), call failed,  ret=[result]". */
bool platform_failed(const char *log, const char *function, int line, const char *call, uint32_t result);

/* The credentials for the calls that follow. A failure is only logged: they use the record as it is. */
t_auth platform_auth(const char *log, const char *function, int line);
