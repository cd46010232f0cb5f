#pragma once

#include <cstdint>
#include <string>
#include <vector>

/* Reverse-proxy rules: the configuration service's answers, and when a rule expires.
 * Nothing here throws, whatever an answer contains. */

constexpr int kProxyNoErrCode = -1000;

struct TProxyRule {
    std::string guid;
    int32_t rule_type = 0;        // 0 a file of the web server, 1 on the message bus
    int64_t last_access_time = 0; // ms of wall clock
    int32_t retention_time = 0;   // minutes
    std::string bs_id;            // rule type 1
};

struct TProxyAnswer {
    int err_code = kProxyNoErrCode; // 0 is success; as preset where the answer has no such number
    std::vector<TProxyRule> rules;
    int unreadable = 0; // elements of the list that are not rules
};

/* Reads an answer. Missing members read as 0 or "". A list element with a member of
 * another type or range, or with a text above 4 KiB, is skipped: the age of such a rule
 * is unknown. 0; -1 if the text is not JSON or exceeds the bounds of
 * base/json_bounds.h: then *error is a message and *answer keeps what it had. */
int proxy_answer_parse(const std::string &text, TProxyAnswer *answer, std::string *error);

/* The remaining time of the rule in ms; at 0 and below it has expired. */
int64_t proxy_remaining_ms(const TProxyRule &rule, uint64_t now_ms);

/* Whether a GUID can be the name of a file in the folder of the rules, and
 * nowhere else. */
bool proxy_guid_is_name(const std::string &guid);
