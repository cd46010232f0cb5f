#include "stats/proc_text.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "common/text.h"
#include "platform/fd.h"

namespace {

constexpr size_t kChunk = 16384;

} // namespace

int proc_read(const char *path, std::string *text)
{
    const TFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return -1;
    text->clear();
    for (;;) {
        const size_t have = text->size();
        text->resize(have + kChunk);
        const ssize_t got = read(file.get(), text->data() + have, kChunk);
        text->resize(have + static_cast<size_t>(std::max<ssize_t>(got, 0)));
        if (got == 0 || (got < 0 && errno != EINTR))
            return 0;
    }
}

int proc_read_at(int folder, const char *name, char *buffer, size_t size)
{
    const TFd file(openat(folder, name, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return -1;
    return static_cast<int>(std::max<ssize_t>(read(file.get(), buffer, size), 0));
}

std::string_view proc_next_line(std::string_view *rest, size_t size)
{
    const size_t end = rest->substr(0, size - 1).find('\n');
    const std::string_view line = rest->substr(0, end == std::string_view::npos ? size - 1 : end + 1);
    rest->remove_prefix(line.size());
    return line;
}

std::string_view proc_next_word(std::string_view *rest)
{
    constexpr const char *kBlanks = " \t\n\v\f\r";
    rest->remove_prefix(std::min(rest->find_first_not_of(kBlanks), rest->size()));
    const std::string_view word = rest->substr(0, rest->find_first_of(kBlanks));
    rest->remove_prefix(word.size());
    return word;
}

int proc_stat_parse(std::string_view text, uint64_t (&fields)[kProcStatFields])
{
    const size_t command_end = text.rfind(')');
    if (command_end == std::string_view::npos)
        return -1;
    std::fill(std::begin(fields), std::end(fields), 0);
    constexpr size_t kBehindState = 3; // ") S"
    std::string_view rest = text.substr(std::min(command_end + kBehindState, text.size()));
    for (size_t field = 4; field < kProcStatFields && text_next_u64(&rest, &fields[field]); ++field) {
    }
    return 0;
}
