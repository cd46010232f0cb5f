#pragma once

#include <chrono>
#include <string>

#include "query_api/outcome.h"

/* Runs gnuplot on the script; *svg gets its standard output, at most 8 MiB. kNotFound if
 * gnuplot is not installed, kTimeout if it takes longer, kInternal if it fails. */
TOutcome gnuplot_draw(const std::string &script, std::chrono::milliseconds timeout, std::string *svg);
