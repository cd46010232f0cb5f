#include "stats/proc_text.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

#include "base/file.h"
#include "platform/host_path.h"

std::optional<std::string> proc_read(const char *path)
{
    const TFd file(open(host_path(path).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return std::nullopt;
    std::string text;
    (void)file_read_rest(file, SIZE_MAX, &text);
    return text;
}

std::string_view proc_read_at(int folder, const std::string &name, std::span<char> buffer)
{
    const TFd file(openat(folder, name.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.is_open() ? read(file.get(), buffer.data(), buffer.size()) : 0;
    return {buffer.data(), static_cast<size_t>(std::max<ssize_t>(length, 0))};
}

size_t text_next_columns(std::string_view *rest, std::span<uint64_t> columns)
{
    size_t count = 0;
    while (count < columns.size() && text_next_u64(rest, &columns[count]))
        ++count;
    return count;
}

std::optional<TProcStat> proc_stat_parse(std::string_view text)
{
    const size_t command_end = text.rfind(')');
    if (command_end == std::string_view::npos)
        return std::nullopt;
    constexpr size_t kBehindState = 3; // ") S"
    std::string_view rest = text.substr(std::min(command_end + kBehindState, text.size()));
    TProcStat fields = {};
    text_next_columns(&rest, std::span(fields).subspan(kFirstNumber));
    return fields;
}

std::optional<TProcStat> proc_stat_read(int proc, const std::string &pid)
{
    char text[1023];
    return proc_stat_parse(proc_read_at(proc, pid + "/stat", text));
}
