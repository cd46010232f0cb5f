#include "housekeeping/file_watcher.h"

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <utility>

#include "common/debug_log.h"
#include "common/trace.h"
#include "platform/host_path.h"

namespace {

constexpr const char *kSource = "sysstat_servername.cpp";
constexpr uint32_t kWatched = IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr size_t kReadSize = 32768;

} // namespace

std::vector<TFileEvent> file_events_parse(std::string_view events)
{
    std::vector<TFileEvent> parsed;
    struct inotify_event event = {};
    while (events.size() >= sizeof(event) && (parsed.empty() || !parsed.back().ends_watch)) {
        memcpy(&event, events.data(), sizeof(event));
        const size_t size = sizeof(event) + event.len;
        if (size > events.size())
            break;
        events.remove_prefix(size);
        parsed.push_back({(event.mask & IN_ISDIR) != 0, (event.mask & (IN_MODIFY | IN_ATTRIB)) != 0,
                          (event.mask & (IN_IGNORED | IN_DELETE_SELF)) != 0});
    }
    return parsed;
}

TFileWatcher::TFileWatcher(std::vector<std::string> paths, std::function<void()> changed)
    : m_paths(std::move(paths)), m_changed(std::move(changed))
{
}

void TFileWatcher::run()
{
    if (m_change_due)
        handle_change();
    if (m_needs_registering && !register_anew())
        return;
    watching();
    if (!m_needs_registering && is_replaced()) {
        m_needs_registering = true;
        (void)register_anew();
    }
}

/* True if all files are watched. Another file than the one watched before is a change
 * that had no event. */
bool TFileWatcher::register_anew()
{
    const TFileIds before = m_watched;
    for (int attempt = 0; attempt < 2 && m_needs_registering; ++attempt)
        m_needs_registering = !regsiter_notify();
    if (m_needs_registering) {
        log_File_Debug(kLogServerName, "%s:%s (%d) regsiter_notify failed.", kSource, "run", 177);
        return false;
    }
    if (!before.empty() && before != m_watched)
        handle_change();
    return true;
}

void TFileWatcher::handle_change()
{
    m_change_due = true;
    m_changed();
    m_change_due = false;
}

/* A path without a file keeps its watch: the file may return. */
bool TFileWatcher::is_replaced() const
{
    for (size_t i = 0; i < m_host_paths.size(); ++i) {
        const auto now = file_id(m_host_paths[i]);
        if (now && now != m_watched[i])
            return true;
    }
    return false;
}

std::optional<TFileWatcher::TFileId> TFileWatcher::file_id(const std::string &host_path)
{
    struct stat status = {};
    const bool exists = stat(host_path.c_str(), &status) == 0;
    return exists ? std::optional(TFileId{status.st_dev, status.st_ino}) : std::nullopt;
}

TFileWatcher::TFileIds TFileWatcher::file_ids() const
{
    TFileIds ids;
    for (const std::string &path : m_host_paths)
        ids.push_back(file_id(path));
    return ids;
}

bool TFileWatcher::regsiter_notify()
{
    m_host_paths.clear();
    for (const std::string &path : m_paths)
        m_host_paths.push_back(host_path(path));
    TFd notify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    TFileIds ids = file_ids(); // before the watch: a replacement in between is found by the next look
    std::vector<int> watches;
    for (size_t i = 0; i < m_paths.size(); ++i) {
        /* Without an instance no path can be watched, which the first of them fails with. */
        const int watch = inotify_add_watch(notify.get(), m_host_paths[i].c_str(), kWatched);
        if (watch < 0) {
            log_File_Debug(kLogServerName, "%s:%s (%d) Cannot watch '%s'.", kSource, "regsiter_notify", 106,
                           m_paths[i].c_str());
            return false; // the new instance goes with it: one lost per second would be the last of them soon
        }
        watches.push_back(watch);
    }
    m_notify = std::move(notify);
    m_watches = std::move(watches);
    m_watched = std::move(ids);
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
    const std::vector<TFileEvent> events = file_events_parse({buffer, static_cast<size_t>(got)});
    if (!events.empty() && events.back().ends_watch) { // before the changes are handled, which may throw
        m_needs_registering = true;
        m_notify.reset();
        m_watches.clear();
    }
    for (const TFileEvent &event : events) {
        write_stdout(event.is_folder ? " [directory]\n" : " [file]\n");
        if (event.is_change)
            handle_change();
    }
}
