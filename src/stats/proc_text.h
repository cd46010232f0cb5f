#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/text.h"

/* Reading the kernel's text files. Their sizes are unknown and they may change between
 * two reads, so each is read once, whole, and then parsed as text. */

/* The text of a file below the host root, from where it is opened to its end; nothing
 * when it cannot be opened. An error in the middle ends the text there. */
std::optional<std::string> proc_read(const char *path);

/* What one read of a small file below an open folder puts into the buffer; empty when
 * it cannot be read. */
std::string_view proc_read_at(int folder, const std::string &name, std::span<char> buffer);

/* Reads the next numbers of a list into the columns. Returns how many there were; the
 * columns behind them stay as they are. */
size_t text_next_columns(std::string_view *rest, std::span<uint64_t> columns);

/* The fields of a /proc/<pid>/stat line under their numbers in proc(5), from 4 (ppid)
 * to 24 (rss); those from the first one on that is missing or no number are 0. */
using TProcStat = std::array<uint64_t, 25>;
enum TProcStatField : size_t {
    kFirstNumber = 4,
    kChildrenMinorFaults = 11,
    kChildrenMajorFaults = 13,
    kUserTime = 14,
    kSystemTime = 15,
    kChildrenUserTime = 16,
    kChildrenSystemTime = 17,
    kResidentPages = 24,
};

/* The fields behind the last ")", since a command may contain anything; nothing for a
 * text without a command. */
std::optional<TProcStat> proc_stat_parse(std::string_view text);

/* The same of the process in a folder of the open /proc; nothing when it is gone. */
std::optional<TProcStat> proc_stat_read(int proc, const std::string &pid);
