#pragma once

#include <stddef.h>

/* The floor for the query service: a bare libmicrohttpd server (epoll, a pool of two threads, one response object per
 * request) that answers every request with the same bytes. Serves on 127.0.0.1 until the process ends; returns -1 on
 * failure. */
#ifdef __cplusplus
extern "C"
#endif
    int
    bare_server_start(unsigned short port, const char *body, size_t size);
