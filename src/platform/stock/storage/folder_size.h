#pragma once

#include <cstdint>
#include <string>

/* What lies below a folder, the folder itself not counted. */
struct T_FOLDER_SIZE {
    uint64_t files = 0;
    uint64_t folders = 0;
    uint64_t bytes = 0;         // lengths of the regular files
    uint64_t largest_bytes = 0; // of one file
};

/* Measures a folder (plain path) that others are writing in: what vanishes or
 * cannot be read is left out, so the figures are of about now. Symbolic links
 * are not followed and other file systems mounted below are not entered: neither
 * takes space of this one. Returns 0, -errno when the folder itself cannot be
 * read, -ETIMEDOUT when its file system does not answer, -EINTR when the caller was
 * asked to stop (platform/interrupt.h); *out is only touched on 0. */
int folder_measure(const std::string &path, T_FOLDER_SIZE *out);
