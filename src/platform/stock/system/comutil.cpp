#include "platform/comutil.h"

#include <algorithm>
#include <cstring>

int comutil_get_json_int_by_key(json_object *object, const char *key, int *value)
{
    json_object *found = nullptr;
    if (!json_object_object_get_ex(object, key, &found) || !json_object_is_type(found, json_type_int))
        return -1;
    *value = json_object_get_int(found); // json-c clamps to 32 bits
    return 0;
}

int comutil_get_json_str_by_key(json_object *object, const char *key, char *buffer, size_t size)
{
    json_object *found = nullptr;
    if (size == 0 || !json_object_object_get_ex(object, key, &found) || !json_object_is_type(found, json_type_string))
        return -1;
    const char *text = json_object_get_string(found);
    const size_t length = std::min(strlen(text), size - 1);
    memcpy(buffer, text, length);
    buffer[length] = '\0';
    return 0;
}
