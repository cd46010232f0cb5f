#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "platform/config_readers.h"

/* The product key that names the surveillance service's system volume. */
inline constexpr const char *kSystemVolumeKey = "OSTRAPRO_SYS_VOL";

/* The volume id that a product key holds: a decimal number, cut to 32 bits. Nothing when
 * the key is not set. */
inline std::optional<int32_t> volume_id_read(const char *key)
{
    std::string text;
    if (getSelfConf(key, "0", text, 0) != 0)
        return std::nullopt;
    return static_cast<int32_t>(strtol(text.c_str(), nullptr, 10));
}

/* The id of that volume as last read from the key; below 1 the role is not
 * configured, -1 it was never read. The volume checks and the database check
 * share it: each stores what it reads, and both read the same key. */
inline std::atomic<int32_t> g_system_volume_id{-1};
