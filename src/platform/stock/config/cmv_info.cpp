#include "platform/cmv_info.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>

#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/config/ini_file.h"

namespace {

/* Clamped to the field's range; 0 for an empty text. */
template <typename TNumber> void convert(const std::string &text, TNumber *field)
{
    using TLimits = std::numeric_limits<TNumber>;
    const long long value = strtoll(text.c_str(), nullptr, 10); // clamps to long long
    *field = static_cast<TNumber>(std::clamp<long long>(value, TLimits::min(), TLimits::max()));
}

void convert(const std::string &text, char (*field)[64])
{
    text_copy(*field, text);
}

int read_record(const char *file, st_cmv_info *info)
{
    TIni ini;
    int result = ini_load(file, &ini);
    /* Missing parts are 0 or empty, unless an unreadable line may have held one. */
    const auto take = [&ini, &result](const char *key, auto *field) {
        std::string text;
        if (ini.get("cmv", key, &text) < 0)
            result = -EINVAL;
        convert(text, field);
    };
    /* Starts from zeros: records are compared byte for byte, including the bytes after a text's end. */
    st_cmv_info record = {};
    take("value1", &record.value1);
    take("value2", &record.value2);
    take("value3", &record.value3);
    take("value4", &record.value4);
    take("text1", &record.text1);
    take("text2", &record.text2);
    if (result == 0)
        *info = record;
    else
        log_Debug("camera-management record %s: %s", file, error_text(-result).c_str());
    return result;
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
