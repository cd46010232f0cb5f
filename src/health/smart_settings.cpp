#include "health/smart_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "base/text.h"
#include "common/debug_log.h"
#include "platform/config_readers.h"
#include "platform/host_path.h"

namespace {

constexpr size_t kOverrideSize = 128; // with the closing NUL

enum class TKeyResult { kFound, kAbsent, kFailed };

TKeyResult read_key(const TSmartKeyReader &read, const char *key, std::string *value, int *err_no)
{
    *err_no = 0;
    if (read(key, *value, err_no) == 0)
        return TKeyResult::kFound;
    return *err_no == NVRCFG_ERR_ABSENT ? TKeyResult::kAbsent : TKeyResult::kFailed;
}

/* The keys behind the threshold. */
bool read_schedule(const TSmartKeyReader &read, TSmartSettings *settings)
{
    std::string value;
    int err_no = 0;
    TKeyResult result = read_key(read, "sch_type", &value, &err_no);
    if (result == TKeyResult::kFailed)
        return false;
    if (result == TKeyResult::kFound)
        settings->sch_type = value;

    struct {
        const char *key, *name;
        int *number;
    } const numbers[] = {{"sch_weekday", "week day", &settings->sch_weekday},
                         {"sch_hour", "day hour", &settings->sch_hour}};
    for (const auto &[key, name, number] : numbers) {
        result = read_key(read, key, &value, &err_no);
        if (result == TKeyResult::kFailed) {
            log_File_Debug(kLogSmart, "get_hdd_health_setting() : %s fail err_no=%d", name, err_no);
            return false;
        }
        if (result == TKeyResult::kFound)
            *number = text_to_int(value.c_str());
    }
    return true;
}

} // namespace

int smart_read_key(const char *key, std::string &out, int *err_no)
{
    return __nvrcfg_get_key_value("hdd_health", key, out, err_no);
}

int smart_threshold(int configured)
{
    const TFd file =
        regular_file_open(host_path("/tmp/hdd_power_on_hour_threshold"), O_RDONLY); // anyone may write there
    if (!file.is_open())
        return configured;
    char text[kOverrideSize] = {};
    const ssize_t length = read(file.get(), text, sizeof(text) - 1);
    if (length <= 0)
        return configured;
    const int hours = text_to_int(text);
    return hours != 0 ? hours : configured;
}

bool get_hdd_health_setting(const TSmartKeyReader &read, TSmartSettings *settings)
{
    std::string value;
    int err_no = 0;
    const TKeyResult result = read_key(read, "power_on_hour_threshold", &value, &err_no);
    if (result == TKeyResult::kFailed)
        return false;
    if (result == TKeyResult::kFound) {
        settings->threshold_hours = smart_threshold(text_to_int(value.c_str()));
        if (!read_schedule(read, settings))
            return false;
    }
    log_File_Debug(kLogSmart, "get_hdd_health_setting() : hour threshold=%d, type=%s, week day=%d, hour=%d",
                   settings->threshold_hours, settings->sch_type.c_str(), settings->sch_weekday, settings->sch_hour);
    return true;
}
