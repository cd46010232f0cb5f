#pragma once

#include <atomic>
#include <cstdint>

/* The product key that names the surveillance service's system volume. */
inline constexpr const char *kSystemVolumeKey = "OSTRAPRO_SYS_VOL";

/* The id of that volume as last read from the key; below 1 the role is not
 * configured, -1 it was never read. The volume checks and the database check
 * share it: each stores what it reads, and both read the same key. */
inline std::atomic<int32_t> g_system_volume_id{-1};
