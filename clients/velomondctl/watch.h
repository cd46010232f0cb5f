#pragma once

#include <string>
#include <vector>

#include "query_api/snapshot.h"

/* What differs between two looks, a line each: "recording: normal -> error". A look
 * that failed has an `absent` text instead of states; it is a change too, as is the
 * first one after it. */
struct TLook {
    TSnapshot states;
    std::string absent;
};
std::vector<std::string> watch_changes(const TLook &before, const TLook &now);

/* What a first look shows. */
std::vector<std::string> watch_first(const TLook &now);
