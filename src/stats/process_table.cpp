#include "stats/process_table.h"

#include <algorithm>

namespace {

constexpr auto kNames = [] {
    std::array<std::string_view, kProcessTable.size()> names;
    std::copy(kProcessTable.begin(), kProcessTable.end(), names.begin());
    return names;
}();
static_assert(kNames[13] == "VeloMond");
static_assert(std::all_of(kNames.begin(), kNames.end(), [](std::string_view name) { return name.size() <= 15; }));

} // namespace

int process_table_row(std::string_view name)
{
    const auto found = std::find(kNames.begin(), kNames.end(), name);
    return found == kNames.end() ? -1 : static_cast<int>(found - kNames.begin());
}

bool is_daemon_name(std::string_view key)
{
    return process_table_row(key) >= 0;
}
