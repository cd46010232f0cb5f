#include "platform/config_readers.h"

#include <unistd.h>

#include "platform/host_path.h"

namespace {

struct TNeededFile {
    const char *path;
    int access; // F_OK, or X_OK for a tool
    const char *without;
};

constexpr TNeededFile kNeeded[] = {
    {"/tarn/etc/volume.conf", F_OK, "volumes are not checked"},
    {"/tarn/etc/config/OstraPro.conf", F_OK, "no volume has a role, the database is not measured"},
    {"/tarn/etc/config/nvr.conf", F_OK, "disk events keep their default schedule and limit"},
    {"/tarn/etc/config/Tarnix.conf", F_OK, "the server name is not watched"},
    {"/tarn/etc/config/cmv_current.conf", F_OK, "camera management is not watched"},
    {"/tarn/etc/config/cmv_record.conf", F_OK, "camera management is not watched"},
    {"/usr/sbin/smartctl", X_OK, "no SMART"},
    {"/usr/bin/ostra_log_tool", X_OK, "no surveillance events"},
    {"/usr/bin/vcmd", X_OK, "no power-on-hour events"},
    {"/usr/local/cmsbin/cfg_bak_tool", X_OK, "no daily backups"},
    {"/usr/sbin/apache2", X_OK, "no reload after proxy rules were removed"},
};

} // namespace

std::string config_missing()
{
    std::string line;
    for (const TNeededFile &one : kNeeded) {
        if (access(host_path(one.path).c_str(), one.access) != 0)
            line += std::string(line.empty() ? "missing: " : ", ") + one.path + " (" + one.without + ")";
    }
    return line;
}
