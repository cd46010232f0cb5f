#pragma once

#include "base/json.h"
#include "common/history.h"
#include "stats/net_record.h"

/* Traffic of each network interface that existed at start; the keys are their
 * names. */

class TNetstatManager : public TStatManagerBase<T_NET_STAT> {
public:
    /* Follows these interfaces; without a list, which is logged, it has no entries. */
    explicit TNetstatManager(TNetNames interfaces);
    ~TNetstatManager() override;
    TNetstatManager(const TNetstatManager &) = delete;
    TNetstatManager &operator=(const TNetstatManager &) = delete;

private:
    void init_map() override;

    TNetNames m_interfaces;
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
