#include "bare_server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>

static const char *g_body;
static size_t g_size;

static enum MHD_Result answer(void *cls, struct MHD_Connection *connection, const char *url, const char *method,
                              const char *version, const char *data, size_t *data_size, void **request)
{
    (void)cls;
    (void)url;
    (void)method;
    (void)version;
    (void)data;
    static int seen;
    if (*request == NULL) { /* an answer in the first call closes the connection */
        *request = &seen;
        return MHD_YES;
    }
    if (*data_size != 0) { /* a body is read and discarded */
        *data_size = 0;
        return MHD_YES;
    }
    struct MHD_Response *response = MHD_create_response_from_buffer(g_size, (void *)g_body, MHD_RESPMEM_MUST_COPY);
    MHD_add_response_header(response, "Content-Type", "application/json");
    const enum MHD_Result result = MHD_queue_response(connection, 200, response);
    MHD_destroy_response(response);
    return result;
}

int bare_server_start(unsigned short port, const char *body, size_t size)
{
    g_body = body;
    g_size = size;
    struct sockaddr_in address = {0};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const struct MHD_Daemon *daemon =
        MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, port, NULL, NULL, answer, NULL, MHD_OPTION_SOCK_ADDR, &address,
                         MHD_OPTION_THREAD_POOL_SIZE, 2U, MHD_OPTION_END);
    return daemon != NULL ? 0 : -1;
}
