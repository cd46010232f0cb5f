#include <cstdio>

#include "platform/kestrel.h"
#include "platform/logging.h"

long long logtool_send_surveillance_log(const log_info &info)
{
    char code[16];
    snprintf(code, sizeof(code), "0x%08x", static_cast<uint32_t>(info.code));
    /* The arguments without gaps: a null ends the list. */
    const char *args[sizeof(info.args) / sizeof(info.args[0])] = {};
    size_t count = 0;
    for (const std::string &text : info.args) {
        if (!text.empty())
            args[count++] = text.c_str();
    }
    const int result = kestrel_exec(0, 0, 0, "/usr/bin/ostra_log_tool", "2", code, "-1", info.user.c_str(),
                                    info.source_address.c_str(), args[0], args[1], args[2], args[3], nullptr);
    return result <= 0 ? result : -result;
}
