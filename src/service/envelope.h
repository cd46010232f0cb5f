#pragma once

#include <memory>
#include <string>

#include "base/json.h"
#include "platform/httpserver.hpp"

/* The answer that most routes give, as text: {"return": result} and, for result
 * 0 with a valid value, "data": the value. `data` is ours to release in every
 * case; a null or a json-c error pointer is no value. */
std::string envelope_text(int result, json_object *data);

/* A body as the answer of a handler: status 200, "application/json". */
std::shared_ptr<httpserver::http_response> json_response(std::string body);
