#include "platform/stock/storage/volumes.h"

#include <algorithm>
#include <limits>
#include <map>

#include "base/text.h"

namespace {

bool volume_number(std::string_view section, int32_t *id)
{
    constexpr std::string_view kPrefix = "VOL_";
    long long number = 0;
    if (!section.starts_with(kPrefix) || !text_to_number(section.substr(kPrefix.size()), &number) || number < 0 ||
        number > std::numeric_limits<int32_t>::max() || section != std::string(kPrefix) + std::to_string(number))
        return false;
    *id = static_cast<int32_t>(number);
    return true;
}

int64_t bytes_of(uint64_t blocks, uint64_t block_size)
{
    uint64_t bytes = 0;
    constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    if (__builtin_mul_overflow(blocks, block_size, &bytes))
        bytes = kMost;
    return static_cast<int64_t>(std::min(bytes, kMost));
}

std::string_view next_field(std::string_view *line)
{
    const size_t end = line->find(' ');
    const std::string_view field = line->substr(0, end);
    line->remove_prefix(end == std::string_view::npos ? line->size() : end + 1);
    return field;
}

/* The kernel writes blanks, tabs, line feeds and backslashes as "\ooo". */
std::string unescaped(std::string_view text)
{
    std::string result;
    const auto octal = [](char one) { return one >= '0' && one <= '7'; };
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && octal(text[i + 1]) && octal(text[i + 2]) && octal(text[i + 3])) {
            result.push_back(
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0')));
            i += 3;
        } else {
            result.push_back(text[i]);
        }
    }
    return result;
}

} // namespace

std::vector<TVolume> volumes_of(const TIni &ini)
{
    std::map<int32_t, TVolume> found;
    for (const TIniEntry &entry : ini.entries) {
        int32_t id = 0;
        if (!volume_number(entry.section, &id))
            continue;
        TVolume &volume = found[id];
        volume.id = id;
        if (entry.key == "volName") {
            volume.name = entry.value;
        } else if (entry.key == "mountPoint") {
            volume.mount_point = entry.value;
            while (volume.mount_point.size() > 1 && volume.mount_point.back() == '/')
                volume.mount_point.pop_back();
        }
    }
    std::vector<TVolume> volumes;
    for (const auto &[id, volume] : found) {
        if (volume.mount_point.starts_with('/'))
            volumes.push_back(volume);
    }
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
        const size_t end = mountinfo.find('\n');
        std::string_view line = mountinfo.substr(0, end);
        mountinfo.remove_prefix(end == std::string_view::npos ? mountinfo.size() : end + 1);
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
