#include "health/change_marker.h"

#include <sys/inotify.h>
#include <unistd.h>

#include "base/file.h"

TChangeMarker::TChangeMarker(std::string path) : m_path(std::move(path))
{
    watch();
}

bool TChangeMarker::take()
{
    if (!m_notify.is_open())
        watch();
    m_is_first = false;
    /* Before the look: what is created behind it is due again. */
    for (alignas(struct inotify_event) char events[4096]; read(m_notify.get(), events, sizeof(events)) > 0;) {
    }
    if (access(m_path.c_str(), F_OK) != 0)
        return false;
    (void)remove(m_path.c_str());
    return true;
}

bool TChangeMarker::is_due() const
{
    return m_is_first || !m_notify.is_open() || fd_is_readable(m_notify);
}

void TChangeMarker::watch()
{
    TFd notify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    const std::string folder = m_path.substr(0, m_path.rfind('/'));
    if (inotify_add_watch(notify.get(), folder.c_str(), IN_CREATE | IN_MOVED_TO) >= 0)
        m_notify = std::move(notify);
}
