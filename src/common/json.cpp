#include "common/json.h"

#include <cerrno>
#include <cstdint>

bool json_is_valid(const json_object *object)
{
    constexpr uintptr_t kLastValidAddress = UINTPTR_MAX - 3999; // -4000 as an address
    return object != nullptr && reinterpret_cast<uintptr_t>(object) <= kLastValidAddress;
}

int json_give(json_object *parent, const char *key, TJson value)
{
    constexpr unsigned kKey = JSON_C_OBJECT_ADD_CONSTANT_KEY | JSON_C_OBJECT_ADD_KEY_IS_NEW; // no copy, no search
    if (parent == nullptr || value == nullptr || json_object_object_add_ex(parent, key, value.get(), kKey) != 0)
        return -ENOMEM;
    (void)value.release(); // the parent's now
    return 0;
}

int json_append(json_object *array, TJson value)
{
    if (array == nullptr || value == nullptr || json_object_array_add(array, value.get()) != 0)
        return -ENOMEM;
    (void)value.release();
    return 0;
}

int json_give_text(json_object *parent, const char *key, const std::string &text)
{
    return json_give(parent, key, TJson(json_object_new_string_len(text.data(), static_cast<int>(text.size()))));
}

int json_append_text(json_object *array, const std::string &text)
{
    return json_append(array, TJson(json_object_new_string_len(text.data(), static_cast<int>(text.size()))));
}

std::string_view json_view(json_object *object)
{
    size_t length = 0;
    const char *text = json_object_to_json_string_length(object, JSON_C_TO_STRING_SPACED, &length);
    return text != nullptr ? std::string_view(text, length) : "null";
}

std::string json_text(json_object *object)
{
    return std::string(json_view(object));
}
