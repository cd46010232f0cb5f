#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>

#include "base/fd.h"

/* Opens a regular file for reading or writing where another user may have put something else at the path: symbolic
 * links are not followed; opening a pipe or device does not block, and fails. `flags` are those of open(2); with
 * O_CREAT, a new file gets `mode`. On failure the returned TFd is not open. */
TFd regular_file_open(const std::string &path, int flags, mode_t mode = 0644);

/* Writes the whole text. Returns 0 or -errno. */
int regular_file_write(const TFd &file, const char *text, size_t length);

/* Reads an open file from its current position to its end, `max_size` bytes at most. Returns 0, -errno, or -EFBIG when
 * there is more; *text holds what was read until then. */
int file_read_rest(const TFd &file, size_t max_size, std::string *text);

/* Whether a read of the descriptor would not block. */
bool fd_is_readable(const TFd &fd);

/* Reads a whole regular file, following symbolic links; pipes and devices are rejected. Returns 0, -errno, or -EFBIG
 * above max_size; *out is only changed on 0. */
int file_read(const std::string &path, size_t max_size, std::string *out);
