#pragma once

#include <cstdint>
#include <string>

/* The platform's general debug trace: writes one line to standard error, adding a line feed when the text has none at
 * its end. */
void log_Debug(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* One entry of the surveillance event log. */
struct log_info {
    int32_t code = -1;
    std::string source_address;
    std::string user;
    std::string computer;
    std::string application;
    int32_t camera = -1;
    int32_t volume = -1;
    std::string args[4];
};

/* Adds the entry. Returns 0, else a negative code. */
long long logtool_send_surveillance_log(const log_info &info);
