#pragma once

#include <string>

/* Writes a finished file into a dump folder (a plain path), in one piece, in place of
 * the present one. The text goes into "<name>.new" first, so that a full disk costs the
 * new file and not the last good one; that is logged. A file that cannot be opened is
 * silently left out. */
void csv_write(const char *folder, const char *name, const std::string &text);
