#include "service/envelope.h"

#include <utility>

#include "platform/ssci.h"

std::string envelope_text(int result, json_object *data)
{
    const TJson value(json_is_valid(data) ? data : nullptr);
    const bool has_data = result == 0 && value != nullptr;
    const std::string_view data_text = has_data ? json_view(value.get()) : "";
    constexpr size_t kAround = 64; // the text around the data
    std::string text;
    text.reserve(kAround + data_text.size());
    text.append("{ \"return\": ").append(std::to_string(result));
    if (has_data)
        text.append(", \"data\": ").append(data_text);
    return text.append(" }");
}

std::shared_ptr<httpserver::http_response> json_response(std::string body)
{
    return std::make_shared<ssci_response>(std::move(body), 200, "application/json");
}
