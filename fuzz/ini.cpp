#include "fuzz.h"

#include <algorithm>
#include <string>

#include "platform/stock/ini_file.h"
#include "platform/stock/volumes.h"

namespace {

bool is_clean(const std::string &text)
{
    return std::none_of(text.begin(), text.end(), [](char c) { return (c < ' ' && c != '\t') || c == '\x7f'; });
}

} // namespace

/* The appliance's configuration files. */
void fuzz_one(std::string_view text)
{
    T_INI ini;
    if (ini_parse_text(text, &ini) != 0)
        FUZZ_CHECK(ini.entries.empty());
    for (const T_INI_ENTRY &entry : ini.entries) {
        FUZZ_CHECK(is_clean(entry.section) && is_clean(entry.key) && is_clean(entry.value));
        FUZZ_CHECK(ini.find(entry.section, entry.key) != nullptr);
    }
    for (const T_VOLUME &volume : volumes_of(ini))
        FUZZ_CHECK(volume.id >= 0 && volume.mount_point.starts_with('/'));
}
