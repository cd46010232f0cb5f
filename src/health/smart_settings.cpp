#include "health/smart_settings.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "base/text.h"
#include "common/debug_log.h"
#include "platform/config_readers.h"
#include "platform/host_path.h"

namespace {

constexpr const char *kSection = "hdd_health";
constexpr size_t kOverrideSize = 128; // with the closing NUL

/* Reads one key of the section; a missing one leaves *value unchanged. False on another
 * failure, which is logged if a name for the log is given. */
bool read_key(const char *key, const char *log_name, std::string *value)
{
    std::string found; // whatever the platform leaves in it for a missing key
    int err_no = 0;
    if (__nvrcfg_get_key_value(kSection, key, found, &err_no) == 0) {
        *value = found;
        return true;
    }
    if (err_no == NVRCFG_ERR_ABSENT)
        return true;
    if (log_name != nullptr)
        log_File_Debug(kLogSmart, "get_hdd_health_setting() : %s fail err_no=%d", log_name, err_no);
    return false;
}

bool read_number(const char *key, const char *log_name, int *number)
{
    std::string value = std::to_string(*number);
    if (!read_key(key, log_name, &value))
        return false;
    *number = text_to_int(value.c_str());
    return true;
}

/* The keys behind the threshold. */
bool read_schedule(TSmartSettings *settings)
{
    return read_key("sch_type", nullptr, &settings->sch_type) &&
           read_number("sch_weekday", "week day", &settings->sch_weekday) &&
           read_number("sch_hour", "day hour", &settings->sch_hour);
}

} // namespace

int smart_threshold(int configured)
{
    const std::string path = host_path("/tmp/hdd_power_on_hour_threshold");
    const TFd file = regular_file_open(path, O_RDONLY); // anyone may write there
    char text[kOverrideSize] = {};
    if (read(file.get(), text, sizeof(text) - 1) < 0) // also without a file
        return configured;
    const int hours = text_to_int(text);
    return hours != 0 ? hours : configured;
}

bool get_hdd_health_setting(TSmartState *state)
{
    TSmartSettings &settings = state->settings;
    std::string threshold;
    int err_no = 0;
    if (__nvrcfg_get_key_value(kSection, "power_on_hour_threshold", threshold, &err_no) == 0) {
        settings.threshold_hours = smart_threshold(text_to_int(threshold.c_str()));
        if (!read_schedule(&settings))
            return false;
    } else if (err_no != NVRCFG_ERR_ABSENT) {
        return false;
    }
    log_File_Debug(kLogSmart, "get_hdd_health_setting() : hour threshold=%d, type=%s, week day=%d, hour=%d",
                   settings.threshold_hours, settings.sch_type.c_str(), settings.sch_weekday, settings.sch_hour);
    state->last_day = kNoDay;
    return true;
}
