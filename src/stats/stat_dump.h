#pragma once

#include <string>

/* Writes a finished file into a dump folder (a plain path), in one piece, created
 * or truncated. A file that cannot be opened is silently left out. */
void csv_write(const char *folder, const char *name, const std::string &text);
