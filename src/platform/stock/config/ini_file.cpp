#include "platform/stock/config/ini_file.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <ini.h>
#include <sys/stat.h>
#include <thread>

#include "base/file.h"
#include "base/text.h"
#include "platform/host_path.h"
#include "platform/logging.h"
#include "platform/stock/config/state_changes.h"
#include "platform/time_stamp.h"

namespace {

constexpr size_t kMaxFile = size_t{1024} * 1024;
/* The parser splits longer lines silently and cuts longer section names: the
 * buffers of Debian's build hold 200 and 50 bytes. */
constexpr size_t kMaxLine = 198;
constexpr size_t kMaxSection = 49;
/* Replaces ";" while the text passes through the parser, which would take one after a blank for the start of a comment.
 * Lines with control characters are ignored, so it cannot occur in the text. */
constexpr char kSemicolon = '\x01';

/* How often, and at what interval, a file that changed just now is read again. */
constexpr int kSettleTries = 5;
constexpr auto kSettlePause = std::chrono::milliseconds(20);
constexpr int64_t kJustNowMs = 2000;

bool has_control(std::string_view line)
{
    return std::any_of(line.begin(), line.end(), [](char one) {
        const auto byte = static_cast<unsigned char>(one);
        return (byte < 0x20 && one != '\t') || byte == 0x7f;
    });
}

/* Whether the parser reads the line as intended. */
bool is_readable(std::string_view line)
{
    if (line.size() > kMaxLine || has_control(line))
        return false;
    return line[0] == '[' ? line.find(']') <= kMaxSection + 1 : line.find_first_of("=:") != std::string_view::npos;
}

/* The text prepared for the parser: without comments, without indentation (it would append an indented line to the
 * value above) and without lines to be ignored. */
std::string prepare(std::string_view text, TIni *counts)
{
    if (text.starts_with("\xef\xbb\xbf"))
        text.remove_prefix(3);
    std::string prepared;
    bool in_section = true; // in a readable one, or before the first
    for (size_t number = 1; !text.empty(); ++number) {
        const std::string_view line = text_trimmed(text_next_line(&text, SIZE_MAX));
        if (line.empty() || line[0] == ';' || line[0] == '#')
            continue;
        const bool readable = is_readable(line);
        if (line[0] == '[')
            in_section = readable;
        if (readable && in_section)
            prepared.append(line).push_back('\n');
        else if (counts->left_out++ == 0)
            counts->first_left_out = number;
    }
    std::replace(prepared.begin(), prepared.end(), ';', kSemicolon);
    return prepared;
}

std::string restored(const char *text)
{
    std::string result = text;
    std::replace(result.begin(), result.end(), kSemicolon, ';');
    return result;
}

int take_entry(void *user, const char *section, const char *name, const char *value)
{
    static_cast<TIni *>(user)->values.insert_or_assign({restored(section), restored(name)}, restored(value));
    return 1;
}

/* Whether the file may be half written: it changed just now and does not end with a line feed. */
bool may_be_unfinished(const std::string &path, const std::string &text)
{
    return !text.ends_with('\n') && ini_changed_just_now(path);
}

void log_left_out(const std::string &path, const std::string &text, const TIni &ini)
{
    static TStateChanges changes;
    const size_t state = ini.left_out != 0 ? std::hash<std::string>()(text) | 1 : 0;
    if (changes.is_news(path, static_cast<int64_t>(state)))
        log_Debug("%s: %zu unreadable lines ignored, the first is line %zu", path.c_str(), ini.left_out,
                  ini.first_left_out);
}

} // namespace

int TIni::get(const std::string &section, const std::string &key, std::string *out) const
{
    const auto found = values.find({section, key});
    if (found == values.end())
        return left_out != 0 ? -EINVAL : 1;
    *out = found->second;
    return 0;
}

TIni ini_parse_text(std::string_view text)
{
    TIni parsed;
    parsed.ends_whole = text.ends_with('\n');
    (void)ini_parse_string(prepare(text, &parsed).c_str(), take_entry, &parsed); // accepts all remaining lines
    return parsed;
}

bool ini_changed_just_now(const std::string &path)
{
    struct stat status = {};
    if (stat(host_path(path).c_str(), &status) != 0)
        return true;
    const int64_t changed_ms = int64_t{status.st_mtim.tv_sec} * 1000 + status.st_mtim.tv_nsec / 1000000;
    const int64_t age_ms = static_cast<int64_t>(current_time_stamp()) - changed_ms;
    return age_ms > -kJustNowMs && age_ms < kJustNowMs;
}

int ini_load(const std::string &path, TIni *out)
{
    std::string text;
    int result = file_read(host_path(path), kMaxFile, &text);
    for (int i = 0; i < kSettleTries && result == 0 && may_be_unfinished(path, text); ++i) {
        std::this_thread::sleep_for(kSettlePause);
        const std::string before = std::move(text);
        result = file_read(host_path(path), kMaxFile, &text);
        /* Unchanged and not empty: the writer is done, the last line feed is simply missing. */
        if (result == 0 && !text.empty() && text == before)
            break;
    }
    /* Truncated for writing: an empty text shows neither the old nor the new content. */
    if (result == 0 && text.empty() && may_be_unfinished(path, text))
        result = -EAGAIN;
    if (result != 0)
        return result;
    *out = ini_parse_text(text);
    log_left_out(path, text, *out);
    return 0;
}
