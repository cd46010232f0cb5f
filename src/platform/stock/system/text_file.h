#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/* Small files and folders of the machine. `path` is the plain path; these functions put the host root in front. */

/* As file_read(). */
int text_file_read(std::string_view path, size_t max_size, std::string *out);

/* One attribute of sysfs as trimmed text. Empty when it is missing, empty or unreadable. */
std::string sysfs_text(std::string_view path);

/* As folder_names(). */
int host_folder_names(std::string_view path, std::vector<std::string> *out);
