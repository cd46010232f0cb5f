#include "base/json.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <new>
#include <string_view>

#include "base/json_bounds.h"

namespace {

/* Not json_tokener_parse, which crashes when its tokener cannot be allocated. */
using TTokener = std::unique_ptr<json_tokener, decltype(&json_tokener_free)>;

TJson parse(json_tokener *tokener, const char *text, int length)
{
    TJson value(json_tokener_parse_ex(tokener, text, length));
    return json_tokener_get_error(tokener) == json_tokener_success ? std::move(value) : nullptr;
}

TJson new_text(const std::string &text)
{
    return TJson(json_object_new_string_len(text.data(), static_cast<int>(text.size())));
}

/* What the library makes of a value. */
std::string_view own_text(json_object *value)
{
    size_t length = 0;
    errno = 0; // the library leaves out what it has no memory for, and does not say so
    const char *text = json_object_to_json_string_length(value, JSON_C_TO_STRING_SPACED, &length);
    if (text == nullptr || errno == ENOMEM)
        throw std::bad_alloc();
    return {text, length};
}

void write_escaped(char c, std::string *text)
{
    constexpr std::string_view kNamed = "\b\f\n\r\t\"\\/", kNames = "bfnrt\"\\/";
    constexpr char kHex[] = "0123456789abcdef";
    if (const size_t at = kNamed.find(c); at != std::string_view::npos)
        text->append({'\\', kNames[at]});
    else
        text->append("\\u00").append({kHex[c >> 4], kHex[c & 15]});
}

void write_text(std::string_view value, std::string *text)
{
    const auto is_plain = [](char c) {
        return static_cast<unsigned char>(c) >= ' ' && c != '"' && c != '\\' && c != '/';
    };
    text->push_back('"');
    while (!value.empty()) {
        const auto plain = std::find_if_not(value.begin(), value.end(), is_plain);
        text->append(value.begin(), plain);
        value.remove_prefix(static_cast<size_t>(plain - value.begin()));
        if (!value.empty()) {
            write_escaped(value.front(), text);
            value.remove_prefix(1);
        }
    }
    text->push_back('"');
}

void write_object(json_object *object, std::string *text)
{
    text->push_back('{');
    const char *separator = " ";
    const json_object_iterator end = json_object_iter_end(object);
    for (auto at = json_object_iter_begin(object); json_object_iter_equal(&at, &end) == 0; json_object_iter_next(&at)) {
        text->append(separator);
        write_text(json_object_iter_peek_name(&at), text);
        text->append(": ");
        json_write(json_object_iter_peek_value(&at), text);
        separator = ", ";
    }
    text->append(" }");
}

void write_array(json_object *array, std::string *text)
{
    text->push_back('[');
    const array_list *list = json_object_get_array(array);
    for (size_t i = 0; i < list->length; ++i) {
        text->append(i == 0 ? " " : ", ");
        json_write(static_cast<json_object *>(list->array[i]), text);
    }
    text->append(" ]");
}

} // namespace

TJson json_parse(const std::string &text)
{
    if (!json_is_bounded(text))
        return nullptr;
    const TTokener tokener(json_tokener_new(), json_tokener_free);
    return tokener != nullptr ? parse(tokener.get(), text.c_str(), -1) : throw std::bad_alloc();
}

TJson json_parse_whole(std::string_view text)
{
    if (text.size() > INT_MAX || !json_is_bounded(text))
        return nullptr;
    const TTokener tokener(json_tokener_new(), json_tokener_free);
    if (tokener == nullptr)
        return nullptr;
    TJson value = parse(tokener.get(), text.data(), static_cast<int>(text.size()));
    const size_t end = json_tokener_get_parse_end(tokener.get());
    return text.find_first_not_of(" \t\r\n", end) == std::string_view::npos ? std::move(value) : nullptr;
}

json_object *json_member(json_object *object, const char *key)
{
    json_object *found = nullptr;
    return json_object_is_type(object, json_type_object) && json_object_object_get_ex(object, key, &found) ? found
                                                                                                           : nullptr;
}

bool json_is_valid(const json_object *object)
{
    constexpr uintptr_t kLastValidAddress = UINTPTR_MAX - 3999; // -4000 as an address
    return object != nullptr && reinterpret_cast<uintptr_t>(object) <= kLastValidAddress;
}

void json_give(json_object *parent, const char *key, TJson value)
{
    constexpr unsigned kKey = JSON_C_OBJECT_ADD_CONSTANT_KEY | JSON_C_OBJECT_ADD_KEY_IS_NEW; // no copy, no search
    if (parent == nullptr || value == nullptr || json_object_object_add_ex(parent, key, value.get(), kKey) != 0)
        throw std::bad_alloc();
    (void)value.release(); // owned by the parent now
}

void json_append(json_object *array, TJson value)
{
    if (array == nullptr || value == nullptr || json_object_array_add(array, value.get()) != 0)
        throw std::bad_alloc();
    (void)value.release();
}

void json_give_text(json_object *parent, const char *key, const std::string &text)
{
    json_give(parent, key, new_text(text));
}

void json_append_text(json_object *array, const std::string &text)
{
    json_append(array, new_text(text));
}

void json_write(json_object *value, std::string *text)
{
    switch (json_object_get_type(value)) {
    case json_type_null:
        text->append("null");
        return;
    case json_type_boolean:
        text->append(json_object_get_boolean(value) != 0 ? "true" : "false");
        return;
    case json_type_string:
        write_text({json_object_get_string(value), static_cast<size_t>(json_object_get_string_len(value))}, text);
        return;
    case json_type_object:
        write_object(value, text);
        return;
    case json_type_array:
        write_array(value, text);
        return;
    case json_type_int:
    case json_type_double:
        break;
    }
    text->append(own_text(value));
}

std::string json_text(json_object *object)
{
    std::string text;
    json_write(object, &text);
    return text;
}
