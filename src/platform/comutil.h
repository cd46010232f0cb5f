#pragma once

#include <cstddef>
#include <json-c/json.h>

/* One integer of a JSON object. Returns 0; -1 when the key is absent or no
 * integer, and then *value keeps what it had. Figures beyond 32 bits are clamped. */
int comutil_get_json_int_by_key(json_object *object, const char *key, int *value);

/* One text of a JSON object, cut to size - 1 characters. Returns 0; -1 when the
 * key is absent or no text, and then the buffer keeps what it had. */
int comutil_get_json_str_by_key(json_object *object, const char *key, char *buffer, size_t size);
