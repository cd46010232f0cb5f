#include "health/volume_config.h"

#include <unistd.h>

#include "base/text.h"
#include "platform/config_readers.h"
#include "platform/host_path.h"

namespace {

constexpr const char *kMissing = "GETCFG_FAILD"; // spelt as the INI library's other users expect it
constexpr const char *kVolumeConf = "/tarn/etc/volume.conf";
constexpr const char *kZfsMarker = "/tarn/etc/TARN_ZFS";
constexpr int32_t kMostVolumes = 128;

} // namespace

bool read_ini_value(const char *file, const char *section, const char *key, std::string *out)
{
    std::string value;
    if (inihandler_getcfg(file, section, key, kMissing, value, 0, false) != 0 || value.empty() || value == kMissing)
        return false;
    *out = value.substr(0, value.rfind('\n'));
    return true;
}

bool volume_on_zfs()
{
    return access(host_path(kZfsMarker).c_str(), F_OK) == 0;
}

bool read_volume_value(int32_t n, const char *key, std::string *out)
{
    return read_ini_value(kVolumeConf, ("VOL_" + std::to_string(n)).c_str(), key, out);
}

void find_zfs_volume(int32_t volume_id, char (&name)[kVolumeNameSize], int32_t *index)
{
    const std::string wanted = std::to_string(volume_id);
    for (int32_t n = 0; n < kMostVolumes; ++n) {
        std::string value;
        if (!read_volume_value(n, "zfsId", &value) || value != wanted || !read_volume_value(n, "volName", &value))
            continue;
        *index = n;
        text_copy(name, value);
        return;
    }
}
