#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/* Reading the kernel's text files. They tell no true size and may change between
 * two reads, so each is read once, whole, and then parsed as text. */

/* Reads a file from where it is opened to its end into *text. Returns 0, -1 when
 * it cannot be opened; an error in the middle ends the text there. */
int proc_read(const char *path, std::string *text);

/* Reads at most `size` bytes of a small file below an open folder. Returns the
 * bytes read, 0 at worst; -1 when it cannot be opened. */
int proc_read_at(int folder, const char *name, char *buffer, size_t size);

/* The numbered fields of a /proc/<pid>/stat line: fields[4] (ppid) to fields[24]
 * (rss), counted as proc(5) does. Taken behind the last ")", since a command may
 * hold anything. Those from the first one that is missing or no number on are 0.
 * Returns 0; -1 when the text has no command. */
constexpr size_t kProcStatFields = 25;
int proc_stat_parse(std::string_view text, uint64_t (&fields)[kProcStatFields]);
