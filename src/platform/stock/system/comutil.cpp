#include "platform/comutil.h"

#include "base/json.h"
#include "base/text.h"

int comutil_get_json_int_by_key(json_object *object, const char *key, int *value)
{
    json_object *found = json_member(object, key);
    if (!json_object_is_type(found, json_type_int))
        return -1;
    *value = json_object_get_int(found); // json-c clamps to 32 bits
    return 0;
}

int comutil_get_json_str_by_key(json_object *object, const char *key, char *buffer, size_t size)
{
    json_object *found = json_member(object, key);
    if (size == 0 || !json_object_is_type(found, json_type_string))
        return -1;
    text_copy(buffer, size, json_object_get_string(found));
    return 0;
}
