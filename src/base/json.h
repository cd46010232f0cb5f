#pragma once

#include <json-c/json.h>
#include <memory>
#include <string>
#include <string_view>

struct TJsonPut {
    void operator()(json_object *object) const { json_object_put(object); }
};

/* One reference to a json-c value, ours until given away. */
using TJson = std::unique_ptr<json_object, TJsonPut>;

/* The value that a foreign text begins with, as json_tokener_parse has it; null when it
 * is no JSON, is cut short, or would make a tree beyond the bounds of
 * base/json_bounds.h. Throws std::bad_alloc. */
TJson json_parse(const std::string &text);

/* The value that fills a text; null as above, when anything but blanks follows
 * it, and without memory. */
TJson json_parse_whole(std::string_view text);

/* A member of an object; null when `object` is no object or has no such member.
 * Borrowed: lives as long as the object. */
json_object *json_member(json_object *object, const char *key);

/* Whether a handle that came from elsewhere is a value: neither null nor one of
 * json-c's error pointers (the last 4000 addresses). */
bool json_is_valid(const json_object *object);

/* Hands `value` over to an object or an array. Throws std::bad_alloc, as containers
 * do, when either could not be made or the value was not taken; it is released then:
 * an answer that lacks a part would be a wrong one. A key is a constant of the
 * program, which the object does not copy, and is given to an object once. */
void json_give(json_object *parent, const char *key, TJson value);
void json_append(json_object *array, TJson value);

/* The same for texts, which is what nearly all figures of the answers are. */
void json_give_text(json_object *parent, const char *key, const std::string &text);
void json_append_text(json_object *array, const std::string &text);

/* The value as text in json-c's default spacing, to the byte as the library writes it,
 * which takes several times as long; "null" for a null handle. json_write appends it.
 * Throws std::bad_alloc. */
void json_write(json_object *value, std::string *text);
std::string json_text(json_object *object);
