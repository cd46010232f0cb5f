#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fd.h"

/* Tells when one of a list of files was changed, through inotify. A file that is
 * replaced is watched again from the next step on. One thread's alone. */
class TFileWatcher {
public:
    TFileWatcher(std::vector<std::string> paths, std::function<void()> changed);

    /* One look: registers where that is needed, then handles what has happened
     * since the look before. Never waits. */
    void run();

    /* Removes all watches. */
    void unregsiter_notify();

private:
    bool regsiter_notify();
    void watching();

    std::vector<std::string> m_paths;
    std::function<void()> m_changed;
    TFd m_notify;
    std::vector<int> m_watches; // of m_paths, while registered
    bool m_needs_registering = true;
};

/* What the events that one read gave ask for. Walks at most to the first event
 * that ends the watch; a truncated event ends the walk. */
struct T_FILE_NEWS {
    std::vector<bool> folders; // per event: it speaks of a folder
    int changes = 0;           // events that say that the file was changed
    bool watch_ended = false;  // the file is gone from under the watch
};
T_FILE_NEWS file_events_parse(std::string_view events);
