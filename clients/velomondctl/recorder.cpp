#include "velomondctl/recorder.h"

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <ini.h>
#include <sys/statvfs.h>

#include "query_api/clean_text.h"

namespace {

int take(void *user, const char *section, const char *name, const char *value)
{
    const std::string_view head(section);
    const std::string_view key(name);
    constexpr std::string_view kPrefix = "VOL_";
    int id = 0;
    if (head.substr(0, kPrefix.size()) != kPrefix)
        return 1;
    const auto [end, error] = std::from_chars(head.data() + kPrefix.size(), head.data() + head.size(), id);
    if (error != std::errc() || end != head.data() + head.size() || id < 0)
        return 1;
    TVolume &volume = (*static_cast<std::map<int, TVolume> *>(user))[id];
    volume.id = id;
    if (key == "volName")
        volume.name = clean_text(value);
    if (key == "mountPoint")
        volume.mount_point = value;
    return 1;
}

std::string host_root()
{
    const char *const root = secure_getenv("VELOMOND_ROOT");
    return root != nullptr ? root : "";
}

} // namespace

double TVolume::used_percent() const
{
    return size_bytes > 0 ? 100.0 * static_cast<double>(size_bytes - free_bytes) / static_cast<double>(size_bytes) : 0;
}

std::vector<TVolume> volumes_parse(std::string_view text)
{
    std::map<int, TVolume> found;
    (void)ini_parse_string(std::string(text).c_str(), take, &found); // lines that make no sense are skipped
    std::vector<TVolume> volumes;
    for (auto &[id, volume] : found) {
        if (!volume.mount_point.empty() && volume.mount_point.front() == '/')
            volumes.push_back(std::move(volume));
    }
    return volumes;
}

std::vector<TVolume> volumes_here()
{
    constexpr size_t kMaxFile = 64U << 10;
    std::ifstream file(host_root() + "/tarn/etc/volume.conf", std::ios::binary);
    std::string text(kMaxFile, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    std::vector<TVolume> volumes = volumes_parse(text);
    for (TVolume &volume : volumes) {
        struct statvfs space = {};
        volume.mounted = statvfs((host_root() + volume.mount_point).c_str(), &space) == 0;
        if (volume.mounted) {
            volume.size_bytes = static_cast<uint64_t>(space.f_blocks) * space.f_frsize;
            volume.free_bytes = static_cast<uint64_t>(space.f_bavail) * space.f_frsize;
        }
        volume.mount_point = clean_text(volume.mount_point);
    }
    return volumes;
}

std::string newest_dump_here()
{
    namespace fs = std::filesystem;
    constexpr const char *kDumps = "/Vtmp/.sys_stats";
    std::string newest;
    fs::file_time_type newest_time;
    std::error_code error;
    for (fs::directory_iterator one(host_root() + kDumps, error), end; !error && one != end; one.increment(error)) {
        const auto time = fs::last_write_time(one->path() / "cpu_stats.csv", error);
        if (!error && (newest.empty() || time > newest_time)) {
            newest = std::string(kDumps) + "/" + clean_text(one->path().filename().string());
            newest_time = time;
        }
        error.clear();
    }
    return newest;
}
