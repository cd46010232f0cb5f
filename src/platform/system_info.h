#pragma once

#include <cstdint>

/* The storage family of this model: 2 and 9 are ZFS-based. Returns 0, else
 * negative with *type unchanged. */
int get_platform_system(uint32_t *type);

/* Whether a service has reported its start by the marker file at `path`. */
bool check_system_init(const char *path);
