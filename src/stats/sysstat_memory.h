#pragma once

#include "base/json.h"
#include "common/history.h"
#include "stats/memory_record.h"

/* Memory of the whole machine (key "system_all") and of each process of the
 * process table (its name). */

class TMemorystatManager : public TStatManagerBase<T_MEMORY_STAT> {
public:
    TMemorystatManager();
    ~TMemorystatManager() override;
    TMemorystatManager(const TMemorystatManager &) = delete;
    TMemorystatManager &operator=(const TMemorystatManager &) = delete;

    /* By the record's own rule: sizes are levels, only the faults are differences. */
    int add_sample(const std::string &key, const T_MEMORY_STAT &raw) override;

private:
    void init_map() override;
};

/* Null while the kind is not up. Set before any reader runs, cleared after the
 * last one is gone. */
extern TMemorystatManager *g_p_MemorystatManager;

int sysstat_memory_init();   // always 0
int sysstat_memory_uninit(); // always 0; harmless without init

/* Takes one reading of everything; a step of the sampling round, which shares the
 * processes with other steps, unless this one had to run a tool before. Always 0. */
int sysstat_memory_sample();
int sysstat_memory_sample_round(TRoundProcesses *processes);

/* Answers a query for one key; *out gets a new object with whole numbers as texts:
 *     "cur_data"   the newest interval
 *     "avg"        means of the newest intervals (`type`: how many, 0 all)
 *     "line_data"  arrays of means, a point per minute, newest first
 * 0; -4 without method or key, -2 when the kind is not up, -6 for a negative type,
 * -3 for another method. */
int sysstat_memory_proc(const char *method, const char *type, const char *key, json_object **out);

/* Adds "mem_phy" and "mem_swap", both always 0, to the object at *out. 0, or -1
 * without one. */
int sysstat_memory_info(json_object **out);

/* Writes "mem_stats.csv" into a dump folder. Always 0. */
int sysstat_memory_dump(const char *folder);

/* Prints the newest interval of everything: the heading on standard output, the
 * figures on standard error. Always 0. */
int sysstat_memory_print();
