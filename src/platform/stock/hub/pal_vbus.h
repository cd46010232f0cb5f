#pragma once

#include <span>
#include <string>
#include <string_view>

#include "platform/pal.h"

/* Bodies of requests; both throw std::bad_alloc. {"texts":[...]}, null for a missing text. */
std::string vbus_notify_body(std::span<const char *const> texts);

/* {"rules":[{"GUID","rule_type","bs_id","value"}]}. */
std::string vbus_rules_body(const t_vbus_reverse_proxy_info &request);

/* Parses {"ret","resp"}: the result is "ret", EPROTO for any other answer; *response is "resp", or the answer itself
 * without it. */
uint32_t vbus_rules_answer(std::string_view body, std::string *response);

/* One line for the system log: the texts, "-" for a missing one. */
std::string vbus_notify_line(std::span<const char *const> texts);

/* The syslog priority for the level text of a notification. */
int vbus_log_priority(const char *level);
