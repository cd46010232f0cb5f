#include "platform/cmv_info.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/config/ini_file.h"

namespace {

/* A number, clamped to the field's range; 0 when missing. */
template <typename TField> TField number_of(const TIni &ini, const char *key)
{
    const std::string *text = ini.find("cmv", key);
    const long long value = text != nullptr ? strtoll(text->c_str(), nullptr, 10) : 0; // clamps to long long
    return static_cast<TField>(
        std::clamp<long long>(value, std::numeric_limits<TField>::min(), std::numeric_limits<TField>::max()));
}

void copy_text(const TIni &ini, const char *key, char (&field)[64])
{
    if (const std::string *text = ini.find("cmv", key))
        memcpy(field, text->data(), std::min(text->size(), sizeof(field) - 1));
}

/* Whether an unreadable line may have held a part of the record; parts that are merely missing are 0 or empty. */
bool is_damaged(const TIni &ini)
{
    std::string ignored;
    constexpr const char *kKeys[] = {"value1", "value2", "value3", "value4", "text1", "text2"};
    return std::any_of(std::begin(kKeys), std::end(kKeys),
                       [&](const char *key) { return ini.get("cmv", key, &ignored) < 0; });
}

int read_record(const char *file, st_cmv_info *info)
{
    TIni ini;
    int result = ini_load(file, &ini);
    if (result == 0 && is_damaged(ini))
        result = -EINVAL;
    if (result != 0) {
        log_Debug("camera-management record %s: %s", file, error_text(-result).c_str());
        return result;
    }
    /* Starts from zeros: records are compared byte for byte, including the bytes after a text's end. */
    st_cmv_info record = {};
    record.value1 = number_of<uint8_t>(ini, "value1");
    record.value2 = number_of<uint8_t>(ini, "value2");
    record.value3 = number_of<uint8_t>(ini, "value3");
    record.value4 = number_of<int32_t>(ini, "value4");
    copy_text(ini, "text1", record.text1);
    copy_text(ini, "text2", record.text2);
    *info = record;
    return 0;
}

} // namespace

int get_cmv_info(st_cmv_info &info)
{
    return read_record("/tarn/etc/config/cmv_current.conf", &info);
}

int check_cmv_info(st_cmv_info &info)
{
    return read_record("/tarn/etc/config/cmv_record.conf", &info);
}
