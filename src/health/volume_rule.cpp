#include "health/volume_rule.h"

#include <string>

#include "base/text.h"
#include "common/event_log.h"
#include "common/system_volume.h"
#include "health/size_format.h"
#include "platform/pal.h"

namespace {

constexpr uint64_t kMb = 1048576;
constexpr const char *kNotifyVersion = "\"'5.2.0.3071'\"";

} // namespace

constexpr std::array<TVolumeRole, kVolumeRoles> kVolumeRoleTable = {{
    {kSystemVolumeKey, "do_zfs_sys_vol_check", {1024, 0x25020001, "002007"}, {10240, 0x25010001, "002004"}, false},
    {"OSTRAPRO_IND_VOL", "do_zfs_idx_vol_check", {10240, 0x25020002, "002008"}, {32768, 0x25010002, "002005"}, true},
    {"OSTRAPRO_CS_VOL", "do_zfs_cs_vol_check", {10240, 0x25020003, "002009"}, {32768, 0x25010003, "002006"}, false},
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

void volume_event_send(const TVolumeRole &role, TVolumeAlert event, const char *name, int64_t free_mb)
{
    const bool is_error = event == TVolumeAlert::kError;
    const TVolumeLimit &limit = is_error ? role.error : role.warning;
    const auto free_count = static_cast<uint64_t>(free_mb); // a negative figure is shown modulo 2^64
    /* The sizes are limits that the receivers rely on. */
    char free_text[16] = "";
    char free_value[32] = "", free_unit[32] = "";
    char threshold_value[32] = "", threshold_unit[32] = "";
    format_size_human(free_text, sizeof(free_text), free_count, kMb, 0);
    format_size_quoted(free_value, sizeof(free_value), free_unit, sizeof(free_unit), free_count, kMb, false);
    format_size_quoted(threshold_value, sizeof(threshold_value), threshold_unit, sizeof(threshold_unit),
                       static_cast<uint64_t>(limit.below_mb), kMb, true);
    const std::string threshold_gb = std::to_string(limit.below_mb / 1024);
    /* The orders differ: the log's message templates number their texts differently. */
    if (is_error)
        (void)send_ostra_log(limit.log_code, "Ostra Surveillance", threshold_gb.c_str(), name, free_text);
    else if (role.names_volume_first)
        (void)send_ostra_log(limit.log_code, name, free_text, threshold_gb.c_str());
    else
        (void)send_ostra_log(limit.log_code, threshold_gb.c_str(), name, free_text);
    (void)PAL_vbus_nc_notify(is_error ? "'$LOG_LEVEL_ERROR'" : "'$LOG_LEVEL_WARN'", "'$LOG_TYPE_LOG_NOTIFY'", "C002",
                             limit.notify_code, kNotifyApplication, kNotifyVersion, "---",
                             text_format("'%s'", name).c_str(), free_value, free_unit, threshold_value, threshold_unit,
                             nullptr, nullptr);
}
