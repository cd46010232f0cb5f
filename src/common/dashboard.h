#pragma once

#include <cstdint>
#include <string>

/* The dashboard receiver of this host. Each call is one request of at most 5 s, whose
 * answer is ignored; the result is that of ssci_POST_request. The receiver sees the
 * name under which a monitor addresses it: "127.0.0.1" or "localhost". */

/* Reports the status of one kind of thing: "disk", "fan", "camera_recording". */
long long dashboard_post(const char *host, const char *kind, const std::string &body);

/* The log facility, which the same receiver serves. */
long long dashboard_put(const char *host, const char *path, const std::string &body);

/* The body of a status: {"utc_time":"<s>","<key>":"<value>"}. */
std::string dashboard_status(uint32_t utc_s, const char *key, const char *value);
