#pragma once

#include <string>

/* Readers of the appliance's configuration. Nothing here ever writes. A file
 * that is replaced while it is read gives a whole value, the old or the new. The
 * first two go on giving the last values that they could read while the file is
 * missing, or damaged where the value was. */

/* One key of the product's own configuration. 0 when found; else `out` is the
 * default and the result negative. */
int getSelfConf(const char *key, const char *default_value, std::string &out, int flag);

/* One key of an INI file ("" or null default is allowed). 0 when the file could
 * be read: then `out` is the value, or the default where section or key is
 * missing. Negative when the file cannot be read, or is damaged and has no such key;
 * `out` is the default then too. */
int inihandler_getcfg(const char *file, const char *section, const char *key, const char *default_value,
                      std::string &out, int option, bool flag);

/* Error numbers of __nvrcfg_get_key_value. */
constexpr int NVRCFG_ERR_FILE = 2;
constexpr int NVRCFG_ERR_ABSENT = 8;

/* One key of the recorder's configuration. 0 when found; else -1, and *err_no
 * tells why: NVRCFG_ERR_ABSENT when file, section or key does not exist,
 * NVRCFG_ERR_FILE when the file cannot be read, or is damaged and has no such key.
 * `out` is only touched on 0. */
int __nvrcfg_get_key_value(const char *section, const char *key, std::string &out, int *err_no);

/* One line that names the files this platform works from and that are missing,
 * each with what that switches off. Empty when all are there. */
std::string config_missing();
