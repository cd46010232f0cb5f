#pragma once

#include <cstddef>
#include <json-c/json.h>

/* Reads an integer member of a JSON object. Returns 0; -1 when the key is missing or not an integer, and then *value is
 * unchanged. Numbers beyond 32 bits are clamped. */
int comutil_get_json_int_by_key(json_object *object, const char *key, int *value);

/* Reads a text member of a JSON object, truncated to size - 1 characters. Returns 0; -1 when the key is missing or not
 * a text, and then the buffer is unchanged. */
int comutil_get_json_str_by_key(json_object *object, const char *key, char *buffer, size_t size);
