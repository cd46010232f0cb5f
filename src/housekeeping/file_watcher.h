#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "base/fd.h"

/* Reports changes of a file, through inotify. A file that is replaced is watched again
 * from the next step on; a replacement without an event (the old file was renamed, or has
 * another name still) counts as a change. For one thread. */
class TFileWatcher {
public:
    TFileWatcher(std::string path, std::function<void()> changed);

    /* One step: registers if needed, then handles the events since the step before.
     * Never waits. If `changed` throws, the next step calls it again. */
    void run();

    /* Whether a step would find something to do; never blocks. A replacement without an
     * event is found by the next step only. */
    bool is_due() const;

    /* Removes the watch. */
    void unregsiter_notify();

private:
    using TFileId = std::pair<dev_t, ino_t>; // zeros: no file

    bool register_anew();
    bool regsiter_notify();
    void watching();
    void handle_change();
    TFileId file_id() const;

    const std::string m_path;
    std::string m_host_path;
    std::function<void()> m_changed;
    TFd m_notify;
    int m_watch = -1;                 // -1: none
    std::optional<TFileId> m_watched; // as registered last; missing: never
    bool m_needs_registering = true;
    bool m_is_missing = false; // there is no file: it may return without an event
    bool m_change_due = false; // seen and not handled to the end
};

/* The meaning of one event. */
struct TFileEvent {
    bool is_folder = false;
    bool is_change = false;  // the file was changed
    bool ends_watch = false; // the watched file no longer exists
    bool operator==(const TFileEvent &) const = default;
};

/* The events of one read, up to the first that ends the watch or is truncated. */
std::vector<TFileEvent> file_events_parse(std::string_view events);
