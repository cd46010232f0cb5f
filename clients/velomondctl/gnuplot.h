#pragma once

#include <chrono>
#include <string>

#include "query_api/outcome.h"

/* Has gnuplot draw what the script says; *svg gets its standard output, 8 MiB at most.
 * kNotFound without gnuplot, kTimeout when it takes longer, kInternal when it fails. */
TOutcome gnuplot_draw(const std::string &script, std::chrono::milliseconds timeout, std::string *svg);
