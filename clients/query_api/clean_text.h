#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/* Foreign text made safe for a terminal, a page and a log: UTF-8 without control
 * characters (C0, DEL, C1), without characters that change the writing direction or
 * have no width, at most `max_chars` characters. Anything else, and invalid UTF-8,
 * is replaced by '?'. */
std::string clean_text(std::string_view text, size_t max_chars = 127);

/* Columns of a terminal that a cleaned text takes: wide characters of the East
 * Asian scripts and pictographs take two, marks that combine take no column. */
size_t text_columns(std::string_view text);

/* The text in exactly that many columns: padded with blanks, or cut with a '~' in the
 * last column. `right`: aligned right. */
std::string text_fitted(std::string_view text, size_t columns, bool right = false);
