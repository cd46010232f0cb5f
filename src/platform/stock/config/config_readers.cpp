#include "platform/config_readers.h"

#include <cerrno>
#include <map>

#include "base/mutex.h"
#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/config/ini_file.h"
#include "platform/stock/config/state_changes.h"

namespace {

constexpr const char *kProductFile = "/tarn/etc/config/OstraPro.conf";
constexpr const char *kRecorderFile = "/tarn/etc/config/nvr.conf";

std::string text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

/* Returns 0 or -errno. A file that cannot be used is logged once until that changes: some files are queried for
 * hundreds of keys a minute. */
int load(const char *file, TIni *ini)
{
    static TStateChanges outcomes;
    const int result = ini_load(file, ini);
    if (outcomes.is_news(file, result))
        log_Debug("%s cannot be used: %s", file, error_text(-result).c_str());
    return result;
}

/* Returns 0; 1 when section or key is missing; -errno when the file cannot be used and no earlier reading has the key.
 * A volume's id may be queried only once, so a file that is being replaced or was damaged must not remove the volume
 * from the checks. */
int look_up_kept(const char *file, const char *section, const char *key, std::string *out)
{
    static TMutex lock;
    static std::map<std::string, TIni> kept; // by file, as last read; guarded by lock
    TIni ini;
    const int result = load(file, &ini);
    const TLock guard(lock);
    TIni &last = kept[file];
    if (result == 0) {
        if (ini.left_out != 0)
            ini.values.merge(last.values); // what is missing is as it was before
        last = std::move(ini);
    }
    const int found = last.get(text_or_empty(section), text_or_empty(key), out);
    return found != 0 && result != 0 ? result : found;
}

} // namespace

int getSelfConf(const char *key, const char *default_value, std::string &out, int /*flag*/)
{
    std::string value;
    const bool found = look_up_kept(kProductFile, "System", key, &value) == 0;
    out = found ? value : text_or_empty(default_value);
    return found ? 0 : -1;
}

int inihandler_getcfg(const char *file, const char *section, const char *key, const char *default_value,
                      std::string &out, int /*option*/, bool /*flag*/)
{
    std::string value = text_or_empty(default_value);
    const int result = file != nullptr ? look_up_kept(file, section, key, &value) : -1;
    out = value;
    return result < 0 ? -1 : 0;
}

int __nvrcfg_get_key_value(const char *section, const char *key, std::string &out, int *err_no)
{
    TIni ini;
    int result = load(kRecorderFile, &ini);
    if (result == 0)
        result = ini.get(text_or_empty(section), text_or_empty(key), &out);
    /* Without a file nothing is set, and the defaults apply. */
    const bool absent = result == 1 || result == -ENOENT || result == -ENOTDIR;
    if (result != 0 && err_no != nullptr)
        *err_no = absent ? NVRCFG_ERR_ABSENT : NVRCFG_ERR_FILE;
    return result == 0 ? 0 : -1;
}
