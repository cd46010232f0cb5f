#pragma once

#include <cstdint>
#include <deque>
#include <ifaddrs.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.h"
#include "stats/statManager.h"

/* Traffic of each network interface that existed at start; the keys are their
 * names. */

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
using T_NET_NAMES = std::optional<std::vector<std::string>>;
T_NET_NAMES net_interfaces();

class TNetstatManager : public TStatManagerBase<T_NET_STAT> {
public:
    /* Follows these interfaces; without names, which is told, none. */
    explicit TNetstatManager(T_NET_NAMES interfaces);
    ~TNetstatManager() override;

private:
    void init_map() override;

    T_NET_NAMES m_interfaces;
};

/* Null while the kind is not up. Set before any reader runs, cleared after the
 * last one is gone. */
extern TNetstatManager *g_p_NetstatManager;

int sysstat_net_init();   // always 0
int sysstat_net_uninit(); // always 0; harmless without init

/* Takes one reading of all interfaces; a step of the sampling round. 0, or -1 when
 * the kernel's counters cannot be read. */
int sysstat_net_sample();

/* Answers a query for one interface; *out gets a new object with "tx" and "rx" as
 * texts. `type` counts the newest intervals, 0 all of them:
 *     "cur_data"    bytes of the newest interval
 *     "avg"         bytes per second
 *     "total"       bytes
 *     "max", "min"  most and fewest bytes of one interval, of `type` + 1 intervals
 *     "line_data"   arrays of bytes per second, a point per minute, newest first
 * 0; -4 without method or name, -2 when the kind is not up, -6 for a negative
 * type, -3 for another method. */
int sysstat_net_proc(const char *method, const char *type, const char *name, json_object **out);

/* Adds the names of the interfaces to the array at *out. 0, or -1 without one. */
int sysstat_net_info(json_object **out);

/* Writes "net_stats.csv" into a dump folder. Always 0. */
int sysstat_net_dump(const char *folder);

/* Prints the totals of "eth0" on standard error, whether there is one or not.
 * Always 0. */
int sysstat_net_print();

/* --- Parsing and computing, for the above and for tests ------------------- */

/* The link-layer interfaces of a list of addresses, up or down, but for the
 * loopback. */
std::vector<std::string> net_tracked(const ifaddrs *list);

/* One line of /proc/net/dev: the interface, cut to 32 characters, and its
 * counters, missing ones 0. False for a line without a name or a colon. */
bool net_line_parse(std::string_view line, std::string *name, T_NET_STAT *stat);

/* Bytes per second of a sum, both in tx and rx; the bytes themselves when no time
 * has passed. */
T_NET_STAT net_rate(const T_NET_STAT &sum);

/* The most and the fewest bytes of one interval. `count` above 0 looks at count + 1
 * of the newest intervals: the one that ended when `count` of them began counts. */
T_NET_STAT net_max(const std::deque<T_NET_STAT> &history, int count);
T_NET_STAT net_min(const std::deque<T_NET_STAT> &history, int count);
