#include "base/json.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <new>

#include "base/json_bounds.h"

namespace {

/* Not json_tokener_parse, which crashes when its tokener cannot be allocated. */
using TTokener = std::unique_ptr<json_tokener, decltype(&json_tokener_free)>;

TJson parse(json_tokener *tokener, const char *text, int length)
{
    TJson value(json_tokener_parse_ex(tokener, text, length));
    return json_tokener_get_error(tokener) == json_tokener_success ? std::move(value) : nullptr;
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
    json_give(parent, key, TJson(json_object_new_string_len(text.data(), static_cast<int>(text.size()))));
}

void json_append_text(json_object *array, const std::string &text)
{
    json_append(array, TJson(json_object_new_string_len(text.data(), static_cast<int>(text.size()))));
}

std::string_view json_view(json_object *object)
{
    if (object == nullptr)
        return "null";
    size_t length = 0;
    errno = 0; // the library omits what it cannot allocate; only errno shows it
    const char *text = json_object_to_json_string_length(object, JSON_C_TO_STRING_SPACED, &length);
    if (text == nullptr || errno == ENOMEM)
        throw std::bad_alloc();
    return {text, length};
}

std::string json_text(json_object *object)
{
    return std::string(json_view(object));
}
