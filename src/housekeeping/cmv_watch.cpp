#include "housekeeping/cmv_watch.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/text.h"
#include "common/debug_log.h"
#include "platform/time_stamp.h"

namespace {

constexpr uint64_t kPeriodMs = 3600000;

uint64_t g_next_check_ms = 0; // the sampling round's alone; 0: check now

} // namespace

std::string cmv_info_text(const st_cmv_info &info)
{
    constexpr size_t kShown = 63;
    std::string text =
        text_format("%d,%d,%d,%d,%.*s,%.*s", info.value1, info.value2, info.value3, info.value4,
                    static_cast<int>(sizeof(info.text1)), info.text1, static_cast<int>(sizeof(info.text2)), info.text2);
    text.resize(std::min(text.size(), kShown));
    return text;
}

int cmv_info_check()
{
    const uint64_t now_ms = current_time_stamp_mono();
    if (g_next_check_ms > now_ms)
        return 0;
    /* Whole records are compared, padding too, so both start from zeros. */
    st_cmv_info current = {};
    st_cmv_info on_file = {};
    (void)get_cmv_info(current);
    (void)check_cmv_info(on_file);
    if (memcmp(&current, &on_file, sizeof(current)) != 0)
        log_File_Debug(kLogCmv, "cmv_info was changed, [%s]->[%s]", cmv_info_text(current).c_str(),
                       cmv_info_text(on_file).c_str());
    g_next_check_ms = now_ms + kPeriodMs;
    return 0;
}
