#pragma once

#include <stddef.h>

/* The floor for the samplers: the same readings of the kernel's files with the fewest system calls, in plain C, parsing
 * only what decides which file to open next. */
#ifdef __cplusplus
extern "C" {
#endif

/* Opens a file, reads it to its end and closes it. Returns the bytes read. */
long floor_read(const char *path);

/* Reads the name of every process below `proc` once; for those with one of the names also "stat" and, if wanted,
 * "statm". Returns the number of these processes. */
long floor_scan(const char *proc, const char *const *names, size_t count, int want_stat, int want_statm);

#ifdef __cplusplus
}
#endif
