#include "stats/process_scan.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

#include "base/folder.h"
#include "base/text.h"
#include "common/trace.h"
#include "platform/host_path.h"
#include "stats/proc_text.h"
#include "stats/process_table.h"

namespace {

/* The row of the process in the folder `entry` of /proc; -1 when it is not in the
 * table, or no process. */
int row_of(int proc, const char *entry)
{
    char buffer[63];
    std::string_view name = proc_read_at(proc, std::string(entry) + "/comm", buffer);
    if (name.ends_with('\n'))
        name.remove_suffix(1);
    return process_table_row(name.substr(0, name.find('\0')));
}

} // namespace

std::optional<TProcessScan> process_scan()
{
    TProcessScan scan;
    const TFolder folder = folder_open(host_path("/proc"));
    if (folder != nullptr)
        scan.proc = TFd(fcntl(dirfd(folder.get()), F_DUPFD_CLOEXEC, 0));
    if (!scan.proc.is_open()) {
        write_stderr("Cannot open /proc: %s\n", error_text(errno).c_str());
        return std::nullopt;
    }
    scan.processes.reserve(kProcessTable.size());
    while (const dirent64 *entry = folder_next(folder.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "self") == 0)
            continue;
        const int row = row_of(scan.proc.get(), entry->d_name);
        if (row >= 0)
            scan.processes.push_back({entry->d_name, static_cast<size_t>(row)});
    }
    return scan;
}

const TProcessScan *TRoundProcesses::scan()
{
    if (!m_scan)
        m_scan = process_scan();
    return m_scan ? &*m_scan : nullptr;
}
