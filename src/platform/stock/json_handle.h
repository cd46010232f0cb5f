#pragma once

#include <json-c/json.h>
#include <memory>
#include <string_view>

struct T_JSON_HANDLE_PUT {
    void operator()(json_object *object) const { json_object_put(object); }
};

/* One reference to a json-c value, ours until given away. */
using TJsonHandle = std::unique_ptr<json_object, T_JSON_HANDLE_PUT>;

/* The value that a whole text holds; null when it is no JSON, is cut short, has
 * something behind its end, or would make a tree beyond the bounds of
 * platform/json_bounds.h. */
TJsonHandle json_handle_parse(std::string_view text);

/* A member of an object; null when `object` is no object or has no such member.
 * Lent: lives as long as the object. */
json_object *json_handle_member(json_object *object, const char *key);
