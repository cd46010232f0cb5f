#include "service/envelope.h"

#include "platform/ssci.h"

std::string envelope_text(int result, json_object *data)
{
    TJson value(json_is_valid(data) ? data : nullptr);
    const TJson root(json_object_new_object());
    json_give(root.get(), "return", TJson(json_object_new_int(result)));
    if (result == 0 && value != nullptr)
        json_give(root.get(), "data", std::move(value));
    return json_text(root.get());
}

std::shared_ptr<httpserver::http_response> json_response(const std::string &body)
{
    return std::make_shared<ssci_response>(body, 200, "application/json");
}
