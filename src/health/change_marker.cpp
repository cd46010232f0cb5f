#include "health/change_marker.h"

#include <cstdio>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

#include "base/file.h"

TChangeMarker::TChangeMarker(std::string path) : m_path(std::move(path)) {}

bool TChangeMarker::take()
{
    /* Before the look: a file created after it is due again. The folder may be another one
     * by now. */
    if (is_due())
        watch();
    const bool exists = access(m_path.c_str(), F_OK) == 0;
    m_is_unchecked = exists && remove(m_path.c_str()) != 0;
    return exists;
}

bool TChangeMarker::is_due() const
{
    return m_is_unchecked || !m_notify.is_open() || fd_is_readable(m_notify);
}

void TChangeMarker::watch()
{
    constexpr uint32_t kNewFile = IN_CREATE | IN_MOVED_TO, kFolderGoes = IN_DELETE_SELF | IN_MOVE_SELF;
    m_notify = TFd(inotify_init1(IN_CLOEXEC));
    const std::string folder = m_path.substr(0, m_path.rfind('/'));
    if (inotify_add_watch(m_notify.get(), folder.c_str(), kNewFile | kFolderGoes) < 0)
        m_notify.reset();
}
