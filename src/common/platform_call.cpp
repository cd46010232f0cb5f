#include "common/platform_call.h"

#include "common/debug_log.h"

bool platform_failed(const char *log, const char *function, int line, const char *call, uint32_t result)
{
    if (result != 0)
        log_File_Debug(log, "%s(%d), %s failed,  ret=[%08x]", function, line, call, result);
    return result != 0;
}

t_auth platform_auth(const char *log, const char *function, int line)
{
    t_auth auth;
    (void)platform_failed(log, function, line, "PAL_auth_get_auth", PAL_auth_get_auth(auth));
    return auth;
}
