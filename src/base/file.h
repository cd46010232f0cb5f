#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

#include "base/fd.h"

/* Opens a regular file for reading or for writing, where others may have put something
 * else in its place: a link is not followed, and a pipe or device is neither waited for
 * nor touched. `flags` are those of open(2), with O_CREAT the file gets `mode`. An owner
 * that is not open on failure. */
TFd regular_file_open(const std::string &path, int flags, mode_t mode = 0644);

/* Writes all of it. 0 or -errno. */
int regular_file_write(const TFd &file, const char *text, size_t length);

/* Reads an open file from where it stands to its end, `max_size` bytes at most. 0,
 * -errno, or -EFBIG when there is more; *text holds what was read until then. */
int file_read_rest(const TFd &file, size_t max_size, std::string *text);

/* The whole text of a regular file, links followed; a pipe or device in its place is
 * refused. 0, -errno, or -EFBIG above max_size; *out is only touched on 0. */
int file_read(const std::string &path, size_t max_size, std::string *out);
