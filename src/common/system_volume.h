#pragma once

#include <atomic>
#include <cstdint>

/* The id of the system volume as it was last read from the configuration: -1
 * before that, below 1 when there is none. The volume checks and the database
 * check both read it from the same key and store it here. */
inline std::atomic<int32_t> g_system_volume_id{-1};
inline constexpr const char *kSystemVolumeKey = "OSTRAPRO_SYS_VOL";
