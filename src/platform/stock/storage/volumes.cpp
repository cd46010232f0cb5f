#include "platform/stock/storage/volumes.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "base/text.h"

namespace {

bool volume_number(std::string_view section, int32_t *id)
{
    constexpr std::string_view kPrefix = "VOL_";
    if (!section.starts_with(kPrefix))
        return false;
    const auto [end, error] = std::from_chars(section.data() + kPrefix.size(), section.data() + section.size(), *id);
    return error == std::errc() && *id >= 0 && section == std::string(kPrefix) + std::to_string(*id);
}

int64_t bytes_of(uint64_t blocks, uint64_t block_size)
{
    int64_t bytes = 0;
    return __builtin_mul_overflow(blocks, block_size, &bytes) ? std::numeric_limits<int64_t>::max() : bytes;
}

/* The kernel writes blanks, tabs, line feeds and backslashes as "\ooo". */
std::string unescaped(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        unsigned code = 0;
        const char *digits = text.data() + 1;
        const bool is_escape =
            text[0] == '\\' && text.size() > 3 && std::from_chars(digits, digits + 3, code, 8).ptr == digits + 3;
        result.push_back(is_escape ? static_cast<char>(code) : text[0]);
        text.remove_prefix(is_escape ? 4 : 1);
    }
    return result;
}

/* Takes a field up to the next blank, the only separator: the kernel does not escape "\r" and the like in names. */
std::string_view next_field(std::string_view *line)
{
    const std::string_view field = line->substr(0, line->find(' '));
    line->remove_prefix(std::min(field.size() + 1, line->size()));
    return field;
}

} // namespace

std::map<int32_t, TVolume> volumes_of(const TIni &ini)
{
    std::map<int32_t, TVolume> volumes;
    for (const auto &[name, value] : ini.values) {
        const auto &[section, key] = name;
        int32_t id = 0;
        if (!volume_number(section, &id))
            continue;
        TVolume &volume = volumes[id];
        volume.id = id;
        if (key == "volName") {
            volume.name = value;
        } else if (key == "mountPoint") {
            volume.mount_point = value;
            while (volume.mount_point.size() > 1 && volume.mount_point.back() == '/')
                volume.mount_point.pop_back();
        }
    }
    std::erase_if(volumes, [](const auto &one) { return !one.second.mount_point.starts_with('/'); });
    return volumes;
}

t_volume_usage volume_usage(const TVolume &volume, const struct statvfs &space)
{
    const uint64_t free = std::min<uint64_t>(space.f_bfree, space.f_blocks);
    const uint64_t available = std::min<uint64_t>(space.f_bavail, free);
    t_volume_usage usage;
    usage.volume_id = volume.id;
    usage.size_bytes = bytes_of(space.f_blocks, space.f_frsize);
    usage.free_bytes = bytes_of(free, space.f_frsize);
    usage.used_bytes = bytes_of(space.f_blocks - free, space.f_frsize);
    usage.reserved_bytes = bytes_of(free - available, space.f_frsize);
    usage.texts = {volume.name, volume.mount_point};
    return usage;
}

bool mount_find(std::string_view mountinfo, std::string_view mount_point, TMount *out)
{
    bool found = false;
    while (!mountinfo.empty()) {
        std::string_view line = text_next_line(&mountinfo, std::string_view::npos);
        (void)next_field(&line); // mount id
        (void)next_field(&line); // parent id
        const std::string_view device = next_field(&line);
        (void)next_field(&line); // root within the file system
        if (unescaped(next_field(&line)) != mount_point || device.empty())
            continue;
        /* Mount options and a variable number of tags end with a single "-". */
        while (!line.empty() && next_field(&line) != "-") {
        }
        const std::string_view kind = next_field(&line);
        *out = {std::string(device), std::string(kind), unescaped(next_field(&line))};
        found = true;
    }
    return found;
}
