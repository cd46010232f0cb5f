#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/* Text of another machine, fit for a terminal, a page and a log: UTF-8 without
 * control characters (C0, DEL, C1), without those that change the direction of
 * writing or have no width, and not longer than `max_chars` characters. Whatever
 * is no such character, or no UTF-8 at all, becomes a '?'. */
std::string clean_text(std::string_view text, size_t max_chars = 127);

/* Columns of a terminal that a cleaned text takes: wide characters of the East
 * Asian scripts and pictographs take two, marks that combine take no column. */
size_t text_columns(std::string_view text);

/* The text in exactly that many columns: blanks after it, or cut, the last column
 * then being a '~'. `right`: the blanks before it. */
std::string text_fitted(std::string_view text, size_t columns, bool right = false);
