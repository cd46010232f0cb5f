#include "stats/process_table.h"

static_assert(std::string_view(kProcessTable[13]) == "VeloMond");

int process_table_row(std::string_view name)
{
    for (size_t row = 0; row < kProcessTable.size(); ++row) {
        if (name == kProcessTable[row])
            return static_cast<int>(row);
    }
    return -1;
}

bool is_daemon_name(std::string_view key)
{
    return process_table_row(key) >= 0;
}
