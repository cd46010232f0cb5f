#include "health/volume_rule.h"

#include "common/system_volume.h"

namespace {

using enum TLogText;

/* The orders differ between the roles: the log's message templates number their
 * texts differently. */
constexpr TLogTexts kErrorTexts = {kProduct, kThreshold, kVolume, kFreeSpace};
constexpr TLogTexts kThresholdFirst = {kThreshold, kVolume, kFreeSpace, kNone};
constexpr TLogTexts kVolumeFirst = {kVolume, kFreeSpace, kThreshold, kNone};

} // namespace

constexpr std::array<TVolumeRole, kVolumeRoles> kVolumeRoleTable = {{
    {kSystemVolumeKey,
     "do_zfs_sys_vol_check",
     {1024, 0x25020001, "002007", kErrorTexts},
     {10240, 0x25010001, "002004", kThresholdFirst}},
    {"OSTRAPRO_IND_VOL",
     "do_zfs_idx_vol_check",
     {10240, 0x25020002, "002008", kErrorTexts},
     {32768, 0x25010002, "002005", kVolumeFirst}},
    {"OSTRAPRO_CS_VOL",
     "do_zfs_cs_vol_check",
     {10240, 0x25020003, "002009", kErrorTexts},
     {32768, 0x25010003, "002006", kThresholdFirst}},
}};

TVolumeAlert volume_rule_decide(const TVolumeRole &role, int64_t free_mb, bool force, TVolumeAlert *state)
{
    const TVolumeAlert before = *state;
    if (free_mb == 0 || free_mb >= role.warning.below_mb)
        *state = TVolumeAlert::kNone;
    else
        *state = free_mb < role.error.below_mb ? TVolumeAlert::kError : TVolumeAlert::kWarning;
    const bool is_repeated = *state == TVolumeAlert::kWarning && before == TVolumeAlert::kWarning && !force;
    return is_repeated ? TVolumeAlert::kNone : *state;
}
