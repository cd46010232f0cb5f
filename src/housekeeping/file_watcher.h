#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "base/fd.h"

/* Tells when one of a list of files was changed, through inotify. A file that is
 * replaced is watched again from the next step on, and where the watch did not see
 * it go (it was renamed away, or has another name still) the replacement counts as
 * a change. One thread's alone. */
class TFileWatcher {
public:
    TFileWatcher(std::vector<std::string> paths, std::function<void()> changed);

    /* One look: registers where that is needed, then handles what has happened
     * since the look before. Never waits. Where `changed` throws, the next look
     * calls it again. */
    void run();

    /* Removes all watches. */
    void unregsiter_notify();

private:
    struct T_FILE_ID {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const T_FILE_ID &) const = default;
    };
    using T_FILE_IDS = std::vector<std::optional<T_FILE_ID>>; // of m_paths; missing: no file there

    bool register_anew();
    bool regsiter_notify();
    void watching();
    void handle_change();
    bool is_replaced() const;
    static std::optional<T_FILE_ID> file_id(const std::string &host_path);
    T_FILE_IDS file_ids() const;

    std::vector<std::string> m_paths;
    std::vector<std::string> m_host_paths; // of m_paths; looked at every second
    std::function<void()> m_changed;
    TFd m_notify;
    std::vector<int> m_watches; // of m_paths, while registered
    T_FILE_IDS m_watched;       // as they were when registered last; empty: never
    bool m_needs_registering = true;
    bool m_change_due = false; // seen and not handled to the end
};

/* What one event asks for. */
struct T_FILE_EVENT {
    bool is_folder = false;
    bool is_change = false;  // the file was changed
    bool ends_watch = false; // the file is gone from under the watch
    bool operator==(const T_FILE_EVENT &) const = default;
};

/* The events that one read gave, at most to the first that ends the watch; a
 * truncated event ends the walk. */
std::vector<T_FILE_EVENT> file_events_parse(std::string_view events);
