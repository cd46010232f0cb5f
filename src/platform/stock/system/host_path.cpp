#include "platform/host_path.h"

#include <cstdlib>
#include <filesystem>

namespace {

/* Read once: a prefix that moved while the daemon runs would tear its files. Never
 * destroyed: threads that nobody waits for may still ask for it at exit. */
const std::string &host_root()
{
    static const std::string &root = *[] {
        const char *value = secure_getenv("VELOMOND_ROOT");
        /* The process moves to "/" when it becomes a daemon. */
        std::string text = value != nullptr && *value != '\0' ? std::filesystem::absolute(value).string() : "";
        while (!text.empty() && text.back() == '/')
            text.pop_back();
        return new std::string(text);
    }();
    return root;
}

} // namespace

std::string host_path(std::string_view path)
{
    std::string full = host_root();
    full.append(path);
    return full;
}
