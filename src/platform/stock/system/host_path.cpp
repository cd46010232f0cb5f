#include "platform/host_path.h"

#include <cstdlib>
#include <filesystem>

namespace {

/* Read once: a prefix that changed while the daemon runs would mix files of two trees. Never destroyed: detached
 * threads may still use it at exit. */
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
