#include "platform/config_readers.h"

#include <cstring>
#include <map>
#include <mutex>

#include "platform/logging.h"
#include "platform/stock/ini_file.h"

namespace {

constexpr const char *kProductFile = "/tarn/etc/config/OstraPro.conf";
constexpr const char *kRecorderFile = "/tarn/etc/config/nvr.conf";

std::string text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

/* Tells of a file that cannot be used, once until that changes: some are asked
 * for hundreds of keys a minute. */
void tell_outcome(const char *file, int result)
{
    static std::mutex lock;
    static std::map<std::string, int> outcomes; // guarded by lock
    const std::lock_guard<std::mutex> guard(lock);
    int &last = outcomes[file];
    if (result != 0 && result != last)
        log_Debug("%s cannot be used: %s", file, strerror(-result));
    last = result;
}

/* 0, 1 where section or key is missing, -errno where the file is at fault. */
int look_up(const char *file, const char *section, const char *key, std::string *out)
{
    T_INI ini;
    const int result = ini_load(file, &ini);
    tell_outcome(file, result);
    if (result != 0)
        return result;
    const std::string *value = ini.find(text_or_empty(section), text_or_empty(key));
    if (value == nullptr)
        return 1;
    *out = *value;
    return 0;
}

} // namespace

int getSelfConf(const char *key, const char *default_value, std::string &out, int /*flag*/)
{
    std::string value;
    const bool found = look_up(kProductFile, "System", key, &value) == 0;
    out = found ? value : text_or_empty(default_value);
    return found ? 0 : -1;
}

int inihandler_getcfg(const char *file, const char *section, const char *key, const char *default_value,
                      std::string &out, int /*option*/, bool /*flag*/)
{
    std::string value = text_or_empty(default_value);
    const int result = file != nullptr ? look_up(file, section, key, &value) : -1;
    out = value;
    return result < 0 ? -1 : 0;
}

int __nvrcfg_get_key_value(const char *section, const char *key, std::string &out, int *err_no)
{
    const int result = look_up(kRecorderFile, section, key, &out);
    if (result != 0 && err_no != nullptr)
        *err_no = result < 0 ? NVRCFG_ERR_FILE : NVRCFG_ERR_ABSENT;
    return result == 0 ? 0 : -1;
}
