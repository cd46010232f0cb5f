#pragma once

#include <string>
#include <sys/types.h>

#include "platform/fd.h"

/* Opens a regular file (a plain path) for reading or for writing, where others may
 * have put something else in its place: a link is not followed, and a pipe or device
 * is neither waited for nor touched. `flags` are those of open(2), with O_CREAT the
 * file gets `mode`. An owner that is not open on failure. */
TFd regular_file_open(const std::string &path, int flags, mode_t mode = 0644);

/* Writes all of it. 0 or -errno. */
int regular_file_write(const TFd &file, const char *text, size_t length);
