#pragma once

#include "base/json.h"
#include "common/history.h"
#include "stats/cpu_record.h"

/* CPU time of the whole machine (key "system_all"), of each core that was online
 * at start ("cpu0", ...) and of each process of the process table (its name). */

class TCpustatManager : public TStatManagerBase<T_CPU_STAT> {
public:
    TCpustatManager();
    ~TCpustatManager() override;
    TCpustatManager(const TCpustatManager &) = delete;
    TCpustatManager &operator=(const TCpustatManager &) = delete;

    int online_cores() const { return m_online_cores; }

private:
    void init_map() override;

    int m_online_cores = 0;
};

/* Null while the kind is not up. Set before any reader runs, cleared after the
 * last one is gone. */
extern TCpustatManager *g_p_CpustatManager;

int sysstat_cpu_init();   // always 0
int sysstat_cpu_uninit(); // always 0; harmless without init

/* Takes one reading of everything; a step of the sampling round, which shares the
 * processes with other steps. Always 0. */
int sysstat_cpu_sample();
int sysstat_cpu_sample_round(TRoundProcesses *processes);

/* Answers a query: "cur_data", "avg" (type: the newest intervals, 0 all) or
 * "line_data", for one key; *out gets a new object with percentages as texts.
 * -4 without method or name, -6 for a negative type. A missing manager and an
 * unknown method are only logged: they answer 0 without an object, which callers
 * have come to rely on. */
int sysstat_cpu_proc(const char *method, const char *type, const char *name, json_object **out);

/* Adds "core_no" and "core_list" to the object at *out. 0, or -1 without one. */
int sysstat_cpu_info(json_object **out);

/* Writes "cpu_stats.csv" into a dump folder. Always 0. */
int sysstat_cpu_dump(const char *folder);

/* Prints the totals of the whole machine on standard error. Always 0. */
int sysstat_cpu_print();
