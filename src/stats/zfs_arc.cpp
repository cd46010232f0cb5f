#include "stats/zfs_arc.h"

#include "base/text.h"
#include "platform/kestrel.h"
#include "platform/time_stamp.h"

bool zfs_arc_is_stale(uint64_t read_ms, uint64_t now_ms)
{
    constexpr uint64_t kKeptMs = 29999;
    return read_ms == 0 || now_ms > read_ms + kKeptMs;
}

TArc zfs_arc_parse(FILE *stream)
{
    TArc arc;
    for (uint64_t *figure : {&arc.size_kb, &arc.evictable_kb, &arc.min_kb}) {
        char line[64];
        uint64_t bytes = 0;
        if (fgets(line, sizeof(line), stream) == nullptr)
            return arc;
        std::string_view rest = line;
        if (!text_next_u64(&rest, &bytes))
            return arc;
        *figure = bytes >> 10;
    }
    arc.is_complete = true;
    return arc;
}

TArcShare zfs_arc_share(const TArc &arc)
{
    const uint64_t kept_kb = arc.size_kb >= arc.evictable_kb ? arc.size_kb - arc.evictable_kb : 0;
    if (arc.size_kb < arc.min_kb)
        return {0, arc.size_kb};
    if (kept_kb < arc.min_kb)
        return {arc.size_kb - arc.min_kb, arc.min_kb};
    return {arc.evictable_kb, kept_kb};
}

TArc TArcCache::read(bool *ran_tool)
{
    const uint64_t now_ms = current_time_stamp_mono();
    *ran_tool = zfs_arc_is_stale(m_read_ms, now_ms);
    if (!*ran_tool)
        return m_arc;
    FILE *stream = kestrel_popen("/usr/sbin/sysctl", "-n", "kstat.zfs.misc.arcstats.size",
                                 "kstat.zfs.misc.arcstats.evictable", "kstat.zfs.misc.arcstats.c_min", nullptr);
    if (stream == nullptr)
        return {};
    const TArc arc = zfs_arc_parse(stream);
    if (arc.is_complete) {
        m_arc = arc;
        m_read_ms = now_ms;
    }
    (void)kestrel_pclose(stream);
    return arc;
}
