#include "platform/stock/json_handle.h"

#include <climits>

#include "platform/json_bounds.h"

namespace {

struct T_TOKENER_FREE {
    void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
};

} // namespace

TJsonHandle json_handle_parse(std::string_view text)
{
    if (text.size() > INT_MAX || !json_is_bounded(text))
        return nullptr;
    const std::unique_ptr<json_tokener, T_TOKENER_FREE> tokener(json_tokener_new());
    if (tokener == nullptr)
        return nullptr;
    TJsonHandle value(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    const bool whole =
        json_tokener_get_error(tokener.get()) == json_tokener_success &&
        text.find_first_not_of(" \t\r\n", json_tokener_get_parse_end(tokener.get())) == std::string_view::npos;
    return whole ? std::move(value) : nullptr;
}

json_object *json_handle_member(json_object *object, const char *key)
{
    json_object *found = nullptr;
    return json_object_is_type(object, json_type_object) && json_object_object_get_ex(object, key, &found) ? found
                                                                                                           : nullptr;
}
