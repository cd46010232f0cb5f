#pragma once

#include <cstdint>
#include <string>
#include <vector>

/* Reverse-proxy rules: the configuration service's answers, and when a rule has
 * outlived its use. Nothing here throws on whatever an answer holds. */

constexpr int kProxyNoErrCode = -1000;

struct T_PROXY_RULE {
    std::string guid;
    int32_t rule_type = 0;        // 0 a file of the web server, 1 on the message bus
    int64_t last_access_time = 0; // ms of wall clock
    int32_t retention_time = 0;   // minutes
    std::string bs_id;            // rule type 1
};

struct T_PROXY_ANSWER {
    int err_code = kProxyNoErrCode; // 0 is success; as preset where the answer has no such number
    std::vector<T_PROXY_RULE> rules;
    int unreadable = 0; // elements of the list that are no rules
};

/* Reads an answer. Members that are missing read as 0 or "". A list element
 * whose members are of another type or beyond their range, or a text above 4 KiB,
 * is left out: how old such a rule is cannot be told. 0; -1 when the text is no JSON or beyond the bounds of
 * base/json_bounds.h: then *error is the parser's message or one of that,
 * and *answer keeps what it had. */
int proxy_answer_parse(const std::string &text, T_PROXY_ANSWER *answer, std::string *error);

/* How much longer the rule is to stay, in ms; expired at 0 and below. */
int64_t proxy_remaining_ms(const T_PROXY_RULE &rule, uint64_t now_ms);

/* Whether a GUID can be the name of a file in the folder of the rules, and
 * nowhere else. */
bool proxy_guid_is_name(const std::string &guid);
