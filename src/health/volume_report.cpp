#include "health/volume_report.h"

#include <cstdio>

#include "base/text.h"
#include "common/debug_log.h"
#include "common/event_log.h"
#include "health/size_format.h"
#include "platform/pal.h"

namespace {

constexpr uint64_t kMb = 1048576;

const char *log_text(const TVolumeTexts &texts, TLogText which)
{
    switch (which) {
    case TLogText::kProduct:
        return "Ostra Surveillance";
    case TLogText::kThreshold:
        return texts.threshold_text;
    case TLogText::kVolume:
        return texts.name;
    case TLogText::kFreeSpace:
        return texts.free_text;
    case TLogText::kNone:
        break;
    }
    return nullptr;
}

} // namespace

TVolumeTexts volume_texts(const char *name, int64_t free_mb, int64_t threshold_mb)
{
    TVolumeTexts texts;
    text_copy(texts.name, name);
    snprintf(texts.quoted_name, sizeof(texts.quoted_name), "'%s'", texts.name);
    /* A negative figure is shown modulo 2^64. */
    const auto free_count = static_cast<uint64_t>(free_mb);
    format_size_human(texts.free_text, sizeof(texts.free_text), free_count, kMb, 0);
    format_size_quoted(texts.free_value, sizeof(texts.free_value), texts.free_unit, sizeof(texts.free_unit), free_count,
                       kMb, false);
    snprintf(texts.threshold_text, sizeof(texts.threshold_text), "%d", static_cast<int>(threshold_mb / 1024));
    format_size_quoted(texts.threshold_value, sizeof(texts.threshold_value), texts.threshold_unit,
                       sizeof(texts.threshold_unit), static_cast<uint64_t>(threshold_mb), kMb, true);
    return texts;
}

void volume_event_send(const TVolumeRole &role, TVolumeAlert event, const char *name, int64_t free_mb)
{
    const bool is_error = event == TVolumeAlert::kError;
    const TVolumeLimit &limit = is_error ? role.error : role.warning;
    const TVolumeTexts texts = volume_texts(name, free_mb, limit.below_mb);
    const auto &order = limit.log_texts;
    (void)send_ostra_log(limit.log_code, log_text(texts, order[0]), log_text(texts, order[1]),
                         log_text(texts, order[2]), log_text(texts, order[3]));
    (void)PAL_vbus_nc_notify(is_error ? "'$LOG_LEVEL_ERROR'" : "'$LOG_LEVEL_WARN'", "'$LOG_TYPE_LOG_NOTIFY'", "C002",
                             limit.notify_code, kNotifyApplication, kNotifyVersion, "---", texts.quoted_name,
                             texts.free_value, texts.free_unit, texts.threshold_value, texts.threshold_unit, nullptr,
                             nullptr);
}

void volume_log_failed(const char *function, int line, const char *call, uint32_t result)
{
    log_File_Debug(kLogVolume, "%s(%d), %s failed,  ret=[%08x]", function, line, call, result);
}
