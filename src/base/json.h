#pragma once

#include <json-c/json.h>
#include <memory>
#include <string>
#include <string_view>

struct TJsonPut {
    void operator()(json_object *object) const { json_object_put(object); }
};

/* Owns one reference to a json-c value, until it is given away. */
using TJson = std::unique_ptr<json_object, TJsonPut>;

/* Parses the value at the beginning of untrusted text, as json_tokener_parse does; null when it is not JSON, is
 * truncated, or would exceed the limits of base/json_bounds.h. Throws std::bad_alloc. */
TJson json_parse(const std::string &text);

/* Parses text that is one JSON value; null as above, when anything but blanks follows the value, and when out of
 * memory. */
TJson json_parse_whole(std::string_view text);

/* A member of an object; null when `object` is not an object or has no such member. Borrowed: valid as long as the
 * object. */
json_object *json_member(json_object *object, const char *key);

/* Whether a handle from another library is a value: neither null nor one of json-c's error pointers (the last 4000
 * addresses). */
bool json_is_valid(const json_object *object);

/* Moves `value` into an object or an array. When either is null or the value cannot be added, it is released and
 * std::bad_alloc thrown, as containers do: an incomplete answer would be a wrong one. Keys are constants of the
 * program, which the object does not copy, and are added to an object only once. */
void json_give(json_object *parent, const char *key, TJson value);
void json_append(json_object *array, TJson value);

/* The same for text: nearly all figures in answers are sent as text. */
void json_give_text(json_object *parent, const char *key, const std::string &text);
void json_append_text(json_object *array, const std::string &text);

/* The value as text in json-c's default spacing, to the byte as the library writes it,
 * which takes several times as long; "null" for a null handle. json_write appends it.
 * Throws std::bad_alloc. */
void json_write(json_object *value, std::string *text);
std::string json_text(json_object *object);
