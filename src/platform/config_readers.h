#pragma once

#include <string>

/* Readers of the appliance's configuration; they never write. A file that is replaced while it is read yields the old
 * or the new value, never a mix. The first two keep returning the last values they could read while the file is
 * missing, or is damaged where the value was. */

/* Reads a key of the product's own configuration. Returns 0 when found; otherwise `out` is the default and the result
 * negative. */
int getSelfConf(const char *key, const char *default_value, std::string &out, int flag);

/* Reads a key of an INI file (the default may be "" or null). Returns 0 when the file could be read: `out` is then the
 * value, or the default where section or key is missing. Negative when the file cannot be read, or is damaged and has
 * no such key; `out` is then the default too. */
int inihandler_getcfg(const char *file, const char *section, const char *key, const char *default_value,
                      std::string &out, int option, bool flag);

/* Error numbers of __nvrcfg_get_key_value. */
constexpr int NVRCFG_ERR_FILE = 2;
constexpr int NVRCFG_ERR_ABSENT = 8;

/* Reads a key of the recorder's configuration. Returns 0 when found; otherwise -1, with the reason in *err_no:
 * NVRCFG_ERR_ABSENT when file, section or key does not exist, NVRCFG_ERR_FILE when the file cannot be read, or is
 * damaged and has no such key. `out` is only changed on 0. */
int __nvrcfg_get_key_value(const char *section, const char *key, std::string &out, int *err_no);

/* One line that lists the missing files of those this platform reads or runs, each with what its absence disables.
 * Empty when all exist. */
std::string config_missing();
