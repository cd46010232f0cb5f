#pragma once

#include <cstdint>

/* Records one surveillance event through the event-log tool: "2", the code as
 * "0x%08x", "-1", two empty texts, then the event's own texts up to the first
 * null. Waits for the tool. Returns its result (kestrel_exec). */
int send_ostra_log(uint32_t code, const char *a1, const char *a2 = nullptr, const char *a3 = nullptr,
                   const char *a4 = nullptr);
