#pragma once

#include <cstdint>
#include <string>

/* The content of a folder, not counting the folder itself. */
struct TFolderSize {
    uint64_t files = 0;
    uint64_t folders = 0;
    uint64_t bytes = 0;         // lengths of the regular files
    uint64_t largest_bytes = 0; // of one file
};

/* Measures a folder (plain path) that other processes are writing to: what vanishes or cannot be read is omitted, so
 * the figures are approximate. Symbolic links are not followed and other file systems mounted below are not entered:
 * neither uses space of this one. Returns 0, -errno when the folder itself cannot be read, -ETIMEDOUT when its file
 * system does not answer, -EINTR when the caller was asked to stop (platform/interrupt.h); *out is only changed on
 * 0. */
int folder_measure(const std::string &path, TFolderSize *out);
