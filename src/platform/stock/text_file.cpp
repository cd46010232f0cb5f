#include "platform/stock/text_file.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#include "platform/fd.h"
#include "platform/host_path.h"

namespace {

constexpr size_t kMaxAttribute = 4096; // sysfs gives no more than a page
constexpr size_t kChunk = size_t{16} * 1024;

struct T_CLOSE_DIR {
    void operator()(DIR *dir) const { (void)closedir(dir); }
};

} // namespace

int text_file_read(std::string_view path, size_t max_size, std::string *out)
{
    const TFd fd(open(host_path(path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status = {};
    if (!fd.is_open() || fstat(fd.get(), &status) != 0)
        return -errno;
    if (!S_ISREG(status.st_mode))
        return -EINVAL;
    std::string text;
    char chunk[kChunk];
    for (;;) {
        const ssize_t got = read(fd.get(), chunk, sizeof(chunk));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -errno;
        if (got == 0)
            break;
        text.append(chunk, static_cast<size_t>(got));
        if (text.size() > max_size)
            return -EFBIG;
    }
    *out = std::move(text);
    return 0;
}

std::string_view text_trimmed(std::string_view text)
{
    constexpr const char *kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string sysfs_text(const std::string &path)
{
    std::string text;
    return text_file_read(path, kMaxAttribute, &text) == 0 ? std::string(text_trimmed(text)) : std::string();
}

int folder_names(std::string_view path, std::vector<std::string> *out)
{
    const std::unique_ptr<DIR, T_CLOSE_DIR> dir(opendir(host_path(path).c_str()));
    if (dir == nullptr)
        return -errno;
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = readdir(dir.get())) { // a stream of this call's own
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    if (errno != 0)
        return -errno;
    std::sort(names.begin(), names.end());
    *out = std::move(names);
    return 0;
}

bool text_to_number(std::string_view text, long long *out)
{
    long long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return false;
    *out = value;
    return true;
}
