#include "housekeeping/file_watcher.h"

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <utility>

#include "base/file.h"
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

TFileWatcher::TFileWatcher(std::string path, std::function<void()> changed)
    : m_path(std::move(path)), m_changed(std::move(changed))
{
}

void TFileWatcher::run()
{
    if (m_change_due)
        handle_change();
    if (m_needs_registering && !register_anew())
        return;
    watching();
    if (m_needs_registering)
        return;
    const TFileId now = file_id();
    m_is_missing = now == TFileId();
    if (!m_is_missing && now != m_watched) { // without a file the watch is kept: it may return
        m_needs_registering = true;
        (void)register_anew();
    }
}

bool TFileWatcher::is_due() const
{
    return m_needs_registering || m_is_missing || m_change_due || fd_is_readable(m_notify);
}

/* True if the file is watched. Another file than the one watched before is a change that
 * had no event. */
bool TFileWatcher::register_anew()
{
    const std::optional<TFileId> before = m_watched;
    for (int attempt = 0; attempt < 2 && m_needs_registering; ++attempt)
        m_needs_registering = !regsiter_notify();
    if (m_needs_registering) {
        log_File_Debug(kLogServerName, "%s:%s (%d) regsiter_notify failed.", kSource, "run", 177);
        return false;
    }
    if (before && before != m_watched)
        handle_change();
    return true;
}

void TFileWatcher::handle_change()
{
    m_change_due = true;
    m_changed();
    m_change_due = false;
}

TFileWatcher::TFileId TFileWatcher::file_id() const
{
    struct stat status = {};
    const bool exists = stat(m_host_path.c_str(), &status) == 0;
    return exists ? TFileId(status.st_dev, status.st_ino) : TFileId();
}

bool TFileWatcher::regsiter_notify()
{
    m_host_path = host_path(m_path);
    TFd notify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    const TFileId id = file_id(); // before the watch: a replacement in between is found by the next look
    /* Without an instance the path cannot be watched, so this fails. */
    const int watch = inotify_add_watch(notify.get(), m_host_path.c_str(), kWatched);
    if (watch < 0) {
        log_File_Debug(kLogServerName, "%s:%s (%d) Cannot watch '%s'.", kSource, "regsiter_notify", 106,
                       m_path.c_str());
        return false; // the new instance goes with it: one lost per second would be the last of them soon
    }
    m_notify = std::move(notify);
    m_watch = watch;
    m_watched = id;
    return true;
}

void TFileWatcher::unregsiter_notify()
{
    if (m_watch >= 0 && inotify_rm_watch(m_notify.get(), m_watch) != 0)
        log_File_Debug(kLogServerName, "%s:%s (%d) removing watch '%s' failed.", kSource, "unregsiter_notify", 122,
                       m_path.c_str());
    m_watch = -1;
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
        m_watch = -1;
    }
    for (const TFileEvent &event : events) {
        write_stdout(event.is_folder ? " [directory]\n" : " [file]\n");
        if (event.is_change)
            handle_change();
    }
}
