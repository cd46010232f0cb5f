#pragma once

#include <stddef.h>

/* The floor that the samplers are measured against: the same readings of the
 * kernel's files made with the fewest system calls, in plain C, nothing parsed
 * but what decides which file to open next. */
#ifdef __cplusplus
extern "C" {
#endif

/* Opens, reads to its end and closes one file. Returns the bytes read. */
long floor_read(const char *path);

/* Reads the name of every process below `proc` once; of those that bear one of the names also
 * "stat" and, where wanted, "statm". Returns the processes that did. */
long floor_scan(const char *proc, const char *const *names, size_t count, int want_stat, int want_statm);

#ifdef __cplusplus
}
#endif
