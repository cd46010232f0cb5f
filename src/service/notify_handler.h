#pragma once

#include <string>

/* Notices of other services, as the notification session delivers them. */

/* What a notice says. -1 and empty where it does not say. */
struct T_SERVICE_NOTICE {
    int type = -1;
    int action = -1;
    /* Of a message-bus event only. */
    char vbus_time[32] = "";
    int vbus_type = -1;
    int vbus_action = -1;
    char vbus_extra_info[256] = "";
};

/* Takes the notice out of a body that a foreign peer has sent. 0; -1 when it is no
 * JSON, -2 without "notice_reason", -3 for a message-bus event without
 * "vbus_data". *notice gets what could be read in each case. */
int notice_parse(const std::string &body, T_SERVICE_NOTICE *notice);

/* Acts on a message-bus event. 0, or the result of the disk-flag update. */
int vbus_notice_dispatch(int vbus_type, int vbus_action, const char *extra_info);
