#include "stats/proc_text.h"

#include <algorithm>
#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "base/text.h"

int proc_read(const char *path, std::string *text)
{
    const TFd file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return -1;
    (void)file_read_rest(file, SIZE_MAX, text);
    return 0;
}

int proc_read_at(int folder, const char *name, char *buffer, size_t size)
{
    const TFd file(openat(folder, name, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return -1;
    return static_cast<int>(std::max<ssize_t>(read(file.get(), buffer, size), 0));
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
