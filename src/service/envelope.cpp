#include "service/envelope.h"

#include <utility>

#include "platform/ssci.h"

std::string envelope_text(int result, json_object *data)
{
    const TJson value(json_is_valid(data) ? data : nullptr);
    const bool has_data = result == 0 && value != nullptr;
    constexpr size_t kUsual = 480; // most answers fit
    std::string text;
    text.reserve(has_data ? kUsual : 0);
    text.append("{ \"return\": ").append(std::to_string(result));
    if (has_data) {
        text.append(", \"data\": ");
        json_write(value.get(), &text);
    }
    return text.append(" }");
}

std::shared_ptr<httpserver::http_response> json_response(std::string body)
{
    return std::make_shared<ssci_response>(std::move(body), 200, "application/json");
}
