#pragma once

#include <cstdint>
#include <ifaddrs.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/* The record of the network statistics: how it is read, and what is computed from it. */

/* One reading, or the difference of two, or a sum of differences. */
struct T_NET_STAT {
    uint64_t tx = 0;     // bytes sent
    uint64_t rx = 0;     // bytes received
    uint64_t inv_ms = 0; // raw: when it was read; else the length of the interval
    uint64_t tp_ms = 0;  // wall clock of the (newer) reading; not summed

    T_NET_STAT difference(const T_NET_STAT &older) const;
    void add(const T_NET_STAT &element);
    void subtract(const T_NET_STAT &element);
};

/* Names of the interfaces there are now; nothing when they cannot be listed. */
using TNetNames = std::optional<std::vector<std::string>>;
TNetNames net_interfaces();

/* The link-layer interfaces of a list of addresses, up or down, except the loopback. */
std::vector<std::string> net_tracked(const ifaddrs *list);

/* One line of /proc/net/dev: the interface, cut to 32 characters, and its counters,
 * missing ones 0. Nothing for a line without a name or a colon. */
struct TNetLine {
    std::string name;
    T_NET_STAT stat; // without times
};
std::optional<TNetLine> net_line_parse(std::string_view line);

/* Bytes per second of a sum, both in tx and rx; the bytes themselves when no time
 * has passed. */
T_NET_STAT net_rate(const T_NET_STAT &sum);

/* The most and the fewest bytes of one interval; 0 and UINT64_MAX without any. */
T_NET_STAT net_max(const std::vector<T_NET_STAT> &intervals);
T_NET_STAT net_min(const std::vector<T_NET_STAT> &intervals);
