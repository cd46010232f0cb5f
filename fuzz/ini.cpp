#include "fuzz.h"

#include <algorithm>
#include <string>

#include "platform/stock/config/ini_file.h"
#include "platform/stock/storage/volumes.h"

namespace {

bool is_clean(const std::string &text)
{
    return std::none_of(text.begin(), text.end(), [](char c) { return (c < ' ' && c != '\t') || c == '\x7f'; });
}

} // namespace

/* The appliance's configuration files. */
void fuzz_one(std::string_view text)
{
    const TIni ini = ini_parse_text(text);
    FUZZ_CHECK((ini.left_out == 0) == (ini.first_left_out == 0));
    const TIni more = ini_parse_text(std::string(text) + "\nno key\n");
    FUZZ_CHECK(more.values == ini.values && more.left_out == ini.left_out + 1); // a bad line only affects itself
    for (const auto &[name, value] : ini.values)
        FUZZ_CHECK(is_clean(name.first) && is_clean(name.second) && is_clean(value));
    for (const auto &[id, volume] : volumes_of(ini))
        FUZZ_CHECK(id >= 0 && volume.id == id && volume.mount_point.starts_with('/'));
}
