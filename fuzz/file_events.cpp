#include "fuzz.h"

#include <sys/inotify.h>

#include "housekeeping/file_watcher.h"

/* Data that a read of an inotify descriptor may return. */
void fuzz_one(std::string_view text)
{
    const std::vector<TFileEvent> events = file_events_parse(text);
    FUZZ_CHECK(events.size() <= text.size() / sizeof(struct inotify_event));
    for (size_t i = 0; i + 1 < events.size(); ++i)
        FUZZ_CHECK(!events[i].ends_watch);
}
