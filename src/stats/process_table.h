#pragma once

#include <array>
#include <cstddef>
#include <string_view>

/* The processes whose CPU time and memory are followed: the appliance's services,
 * and this monitor. Their order is the order of the dumps and of "daemon_list".
 * Names as the kernel has them in "comm": at most 15 characters. */
inline constexpr std::array<const char *, 21> kProcessTable = {
    "Vnvrd",        "VrecStream",  "VliveStream", "Vplayback",   "VsearchIndex", "VcamManager", "VeventEngine",
    "VmetaService", "Vnotifyd",    "VconfigSvc",  "VwebGateway", "Vnameserver",  "VmsgBus",     "VeloMond",
    "VauthService", "VstorageMgr", "VdbService",  "VbackupSvc",  "VdashboardRx", "VlogService", "VtimeSync",
};

/* One record per row of the table. */
template <typename TItem> using TTableRecords = std::array<TItem, kProcessTable.size()>;

/* The row of a name; -1 when it is not in the table. */
int process_table_row(std::string_view name);

/* Whether a key of the statistics is the name of a process of the table; any
 * other key is a key of the system. */
bool is_daemon_name(std::string_view key);
