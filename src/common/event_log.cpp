#include "common/event_log.h"

#include <cstdio>

#include "platform/kestrel.h"

int send_ostra_log(uint32_t code, const char *a1, const char *a2, const char *a3, const char *a4)
{
    char code_text[16];
    snprintf(code_text, sizeof(code_text), "0x%08x", code);
    /* A missing text is null and so ends the list early. */
    return kestrel_exec(0, 0, 0, "/usr/bin/ostra_log_tool", "2", code_text, "-1", "", "", a1, a2, a3, a4, nullptr);
}
