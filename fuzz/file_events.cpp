#include "fuzz.h"

#include <sys/inotify.h>

#include "housekeeping/file_watcher.h"

/* What a read of an inotify descriptor may give. */
void fuzz_one(std::string_view text)
{
    const T_FILE_NEWS news = file_events_parse(text);
    FUZZ_CHECK(news.folders.size() <= text.size() / sizeof(struct inotify_event));
    FUZZ_CHECK(static_cast<size_t>(news.changes) <= news.folders.size());
}
