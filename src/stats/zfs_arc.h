#pragma once

#include <cstdint>
#include <cstdio>

/* How much of the memory that the ZFS cache (ARC) holds counts as free. The
 * figures come from "sysctl" and are kept for 30 s, since running it costs more
 * than all the rest of a sampling round. */

struct TArc {
    uint64_t size_kb = 0;
    uint64_t evictable_kb = 0;
    uint64_t min_kb = 0;      // the cache does not shrink below it
    bool is_complete = false; // all three were read
};

/* The figures of now, or of at most 30 s ago. One thread at a time. */
class TArcCache {
public:
    /* Zeros when the tool cannot be started. Only figures that were read whole are
     * kept, else the next call tries again. *ran_tool: this call had to run the tool,
     * which takes up to 5 s. */
    TArc read(bool *ran_tool);

private:
    TArc m_arc;
    uint64_t m_read_ms = 0; // monotonic; 0: never
};

struct TArcShare {
    uint64_t reclaimable_kb = 0; // counts as free
    uint64_t cache_kb = 0;       // does not
};
TArcShare zfs_arc_share(const TArc &arc);

/* The three figures, in bytes, one a line. A line that is missing or no number
 * makes its figure and those behind it 0. */
TArc zfs_arc_parse(FILE *stream);

/* Whether figures read at `read_ms` (0: never) are too old at `now_ms`; both of
 * the monotonic clock. */
bool zfs_arc_is_stale(uint64_t read_ms, uint64_t now_ms);
