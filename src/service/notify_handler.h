#pragma once

#include <string>

/* Notices of other services, as the notification session delivers them. */

/* The fields of a notice; -1 or empty if missing. */
struct TServiceNotice {
    int type = -1;
    int action = -1;
    /* Of a message-bus event only. */
    char vbus_time[32] = "";
    int vbus_type = -1;
    int vbus_action = -1;
    char vbus_extra_info[256] = "";
};

/* Reads the notice from the body of a request. 0; -1 if it is not JSON, -2 without
 * "notice_reason", -3 for a message-bus event without "vbus_data". *notice gets the
 * fields that were read in each case. */
int notice_parse(const std::string &body, TServiceNotice *notice);

/* Acts on a message-bus event. 0, or the result of the disk-flag update. */
int vbus_notice_dispatch(int vbus_type, int vbus_action, const char *extra_info);
