#include "housekeeping/file_watcher.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/inotify.h>
#include <utility>

#include "common/debug_log.h"
#include "platform/host_path.h"

namespace {

constexpr const char *kSource = "sysstat_servername.cpp";
constexpr uint32_t kWatched = IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr size_t kReadSize = 32768;

} // namespace

T_FILE_NEWS file_events_parse(std::string_view events)
{
    T_FILE_NEWS news;
    struct inotify_event event = {};
    while (events.size() >= sizeof(event) && !news.watch_ended) {
        memcpy(&event, events.data(), sizeof(event));
        const size_t size = sizeof(event) + event.len;
        if (size > events.size())
            break;
        events.remove_prefix(size);
        news.folders.push_back((event.mask & IN_ISDIR) != 0);
        if ((event.mask & (IN_MODIFY | IN_ATTRIB)) != 0)
            ++news.changes;
        news.watch_ended = (event.mask & (IN_IGNORED | IN_DELETE_SELF)) != 0;
    }
    return news;
}

TFileWatcher::TFileWatcher(std::vector<std::string> paths, std::function<void()> changed)
    : m_paths(std::move(paths)), m_changed(std::move(changed))
{
}

void TFileWatcher::run()
{
    for (int attempt = 0; attempt < 2 && m_needs_registering; ++attempt)
        m_needs_registering = !regsiter_notify();
    if (m_needs_registering) {
        log_File_Debug(kLogServerName, "%s:%s (%d) regsiter_notify failed.", kSource, "run", 177);
        return;
    }
    watching();
}

bool TFileWatcher::regsiter_notify()
{
    TFd notify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!notify.is_open())
        return false;
    std::vector<int> watches;
    for (const std::string &path : m_paths) {
        const int watch = inotify_add_watch(notify.get(), host_path(path).c_str(), kWatched);
        if (watch < 0) {
            log_File_Debug(kLogServerName, "%s:%s (%d) Cannot watch '%s'.", kSource, "regsiter_notify", 106,
                           path.c_str());
            return false; // the new instance goes with it: one lost per second would be the last of them soon
        }
        watches.push_back(watch);
    }
    m_notify = std::move(notify);
    m_watches = std::move(watches);
    return true;
}

void TFileWatcher::unregsiter_notify()
{
    for (size_t i = 0; i < m_watches.size(); ++i) {
        if (inotify_rm_watch(m_notify.get(), m_watches[i]) != 0)
            log_File_Debug(kLogServerName, "%s:%s (%d) removing watch '%s' failed.", kSource, "unregsiter_notify", 122,
                           m_paths[i].c_str());
    }
    m_watches.clear();
}

void TFileWatcher::watching()
{
    alignas(struct inotify_event) char buffer[kReadSize];
    const ssize_t got = read(m_notify.get(), buffer, sizeof(buffer));
    if (got < 0) {
        if (errno != EAGAIN)
            log_File_Debug(kLogServerName, "%s:%s (%d) read failed.", kSource, "watching", 136);
        return;
    }
    const T_FILE_NEWS news = file_events_parse({buffer, static_cast<size_t>(got)});
    for (const bool folder : news.folders)
        fputs(folder ? " [directory]\n" : " [file]\n", stdout);
    for (int i = 0; i < news.changes; ++i)
        m_changed();
    if (news.watch_ended) {
        m_needs_registering = true;
        m_notify.reset();
        m_watches.clear();
    }
}
