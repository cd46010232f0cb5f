#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/* The surveillance volumes in the appliance's configuration, which is read again at
 * every call. */

inline constexpr size_t kVolumeNameSize = 128;

/* One key of an INI file, up to its last line feed. False, and *out untouched,
 * when the file cannot be read or the key is missing or empty. */
bool read_ini_value(const char *file, const char *section, const char *key, std::string *out);

/* Whether the storage of this host is ZFS. */
bool volume_on_zfs();

/* One key of the section "VOL_<n>" of "/tarn/etc/volume.conf", as above. */
bool read_volume_value(int32_t n, const char *key, std::string *out);

/* The first of the sections VOL_0 to VOL_127 whose zfsId is `volume_id` and that
 * has a name: its number and its name, cut to the buffer. Both outputs stay
 * untouched if there is none. */
void find_zfs_volume(int32_t volume_id, char (&name)[kVolumeNameSize], int32_t *index);
