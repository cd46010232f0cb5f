#pragma once

#include <string>
#include <string_view>

/* Maps an absolute path of the appliance to its real place: `path` below the host root. The root is empty on the
 * appliance; the environment variable VELOMOND_ROOT, read once at the start, puts a prepared tree in place of "/".
 *
 * Every path that is opened, created, renamed, watched or executed must be mapped. Paths in text (log lines, arguments
 * of tools, answers) stay unmapped. Any thread may call. */
std::string host_path(std::string_view path);
