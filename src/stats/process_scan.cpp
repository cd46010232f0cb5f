#include "stats/process_scan.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>

#include "base/folder.h"
#include "base/text.h"
#include "common/trace.h"
#include "platform/host_path.h"
#include "stats/proc_text.h"
#include "stats/process_table.h"

namespace {

constexpr size_t kNameRead = 63;

/* Both under the global statistics lock. */
T_PROCESS_SCAN g_scan;
bool g_read_this_round = false;

/* The row of the process in the folder `entry` of /proc; -1 when it is none of
 * the table, or no process. */
int row_of(int proc, const char *entry)
{
    char path[NAME_MAX + sizeof("/comm")];
    char *end = stpcpy(path, entry);
    memcpy(end, "/comm", sizeof("/comm"));
    char name[kNameRead];
    const int length = proc_read_at(proc, path, name, sizeof(name));
    if (length < 2)
        return -1;
    std::string_view text(name, static_cast<size_t>(length));
    if (text.back() == '\n')
        text.remove_suffix(1);
    return process_table_row(text.substr(0, text.find('\0')));
}

} // namespace

const T_PROCESS_SCAN *process_scan_new()
{
    g_read_this_round = false;
    g_scan.processes.clear();
    g_scan.proc.reset();
    const TFolder dir = folder_open(host_path("/proc"));
    if (dir != nullptr)
        g_scan.proc = TFd(fcntl(dirfd(dir.get()), F_DUPFD_CLOEXEC, 0));
    if (!g_scan.proc.is_open()) {
        const int error = errno;
        char buffer[128];
        tell("Cannot open /proc: %s\n", strerror_r(error, buffer, sizeof(buffer)));
        return nullptr;
    }
    while (const struct dirent *entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "self") == 0)
            continue;
        const int row = row_of(g_scan.proc.get(), entry->d_name);
        if (row >= 0)
            g_scan.processes.push_back({entry->d_name, static_cast<size_t>(row)});
    }
    g_read_this_round = true;
    return &g_scan;
}

const T_PROCESS_SCAN *process_scan_of_round()
{
    const T_PROCESS_SCAN *scan = g_read_this_round ? &g_scan : process_scan_new();
    g_read_this_round = false;
    return scan;
}

void process_scan_expire()
{
    g_read_this_round = false;
}
