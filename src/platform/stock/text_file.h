#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/* Small files and folders. `path` is the plain path; the host root is put in
 * front here. */

/* The whole text of a regular file, read through one descriptor. Never waits for
 * a peer (a pipe in place of the file is refused). Returns 0, -errno, -EFBIG
 * above max_size; *out is only touched on 0. */
int text_file_read(std::string_view path, size_t max_size, std::string *out);

/* Without the blanks, tabs and line ends around it. */
std::string_view text_trimmed(std::string_view text);

/* One attribute of sysfs: its text, trimmed.
 * Empty when it is absent, empty or cannot be read. */
std::string sysfs_text(const std::string &path);

/* The names in a folder, sorted, without "." and "..". 0 or -errno. */
int folder_names(std::string_view path, std::vector<std::string> *out);

/* A decimal number that fills the whole text. False for anything else. */
bool text_to_number(std::string_view text, long long *out);
