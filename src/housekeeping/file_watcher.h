#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "base/fd.h"

/* Reports changes of a list of files, through inotify. A file that is replaced is
 * watched again from the next step on; a replacement without an event (the old file was
 * renamed, or has another name still) counts as a change. For one thread. */
class TFileWatcher {
public:
    TFileWatcher(std::vector<std::string> paths, std::function<void()> changed);

    /* One step: registers if needed, then handles the events since the step before.
     * Never waits. If `changed` throws, the next step calls it again. */
    void run();

    /* Removes all watches. */
    void unregsiter_notify();

private:
    struct TFileId {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const TFileId &) const = default;
    };
    using TFileIds = std::vector<std::optional<TFileId>>; // of m_paths; missing: no file there

    bool register_anew();
    bool regsiter_notify();
    void watching();
    void handle_change();
    bool is_replaced() const;
    static std::optional<TFileId> file_id(const std::string &host_path);
    TFileIds file_ids() const;

    std::vector<std::string> m_paths;
    std::vector<std::string> m_host_paths; // of m_paths; looked at every second
    std::function<void()> m_changed;
    TFd m_notify;
    std::vector<int> m_watches; // of m_paths, while registered
    TFileIds m_watched;         // as they were when registered last; empty: never
    bool m_needs_registering = true;
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
