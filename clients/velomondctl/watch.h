#pragma once

#include <string>
#include <vector>

#include "query_api/snapshot.h"

/* Changes between two looks, a line each: "recording: normal -> error". A look that
 * failed has an error in `absent` instead of states; its start and its end are changes
 * too. */
struct TLook {
    TSnapshot states;
    std::string absent;
};
std::vector<std::string> watch_changes(const TLook &before, const TLook &now);

/* The lines of the first look. */
std::vector<std::string> watch_first(const TLook &now);
