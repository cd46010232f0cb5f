#include "platform/stock/system/text_file.h"

#include "base/file.h"
#include "base/folder.h"
#include "base/text.h"
#include "platform/host_path.h"

int text_file_read(std::string_view path, size_t max_size, std::string *out)
{
    return file_read(host_path(path), max_size, out);
}

std::string sysfs_text(std::string_view path)
{
    constexpr size_t kMaxAttribute = 4096; // sysfs returns no more than a page
    std::string text;
    return text_file_read(path, kMaxAttribute, &text) == 0 ? std::string(text_trimmed(text)) : std::string();
}

int host_folder_names(std::string_view path, std::vector<std::string> *out)
{
    return folder_names(host_path(path), out);
}
