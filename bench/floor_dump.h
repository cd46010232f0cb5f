#pragma once

#include <stddef.h>

/* The floor for a dump: the same bytes in the same files, without formatting. */
#ifdef __cplusplus
extern "C" {
#endif

struct TFloorFile {
    const char *path;
    const char *data;
    size_t size;
};

/* Creates the folder if missing and writes each file in one piece, created or truncated. Returns the number of files
 * written. */
size_t floor_dump(const char *folder, const struct TFloorFile *files, size_t count);

#ifdef __cplusplus
}
#endif
