#include "service/envelope.h"

#include <utility>

#include "platform/ssci.h"

std::string envelope_text(int result, json_object *data)
{
    const TJson value(json_is_valid(data) ? data : nullptr);
    std::string text = "{ \"return\": " + std::to_string(result);
    if (result == 0 && value != nullptr)
        text.append(", \"data\": ").append(json_text(value.get()));
    return text.append(" }");
}

std::shared_ptr<httpserver::http_response> json_response(std::string body)
{
    return std::make_shared<ssci_response>(std::move(body), 200, "application/json");
}
