#pragma once

#include <string>
#include <string_view>

/* Where a file of the appliance really lies: `path`, an absolute path, behind
 * the host root. The root is empty on the appliance; the environment variable
 * VELOMOND_ROOT, read once at start, puts a prepared tree in place of "/".
 *
 * Everything that is opened, created, renamed, watched or executed goes through
 * here. Texts that are told (log lines, arguments of tools, answers) keep the
 * plain path. Any thread may call. */
std::string host_path(std::string_view path);
