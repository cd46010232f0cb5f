#pragma once

#include <cstdint>
#include <deque>
#include <string>

/* Building the CSV files of a dump: a row is a label and one column per interval,
 * newest first, each after a comma and a blank. */

void csv_column_u64(std::string *text, uint64_t value);
void csv_column_1f(std::string *text, double value);

/* A row of whole numbers; `value` gives an interval's figure. */
template <typename T, typename VALUE>
void csv_row_u64(std::string *text, const char *label, const std::deque<T> &history, VALUE value)
{
    text->append(label);
    for (auto element = history.rbegin(); element != history.rend(); ++element)
        csv_column_u64(text, value(*element));
    text->push_back('\n');
}

/* A row of figures with one decimal. */
template <typename T, typename VALUE>
void csv_row_1f(std::string *text, const char *label, const std::deque<T> &history, VALUE value)
{
    text->append(label);
    for (auto element = history.rbegin(); element != history.rend(); ++element)
        csv_column_1f(text, value(*element));
    text->push_back('\n');
}

/* Writes a finished file into a dump folder (a plain path), in one piece, created
 * or truncated. A file that cannot be opened is silently left out. */
void csv_write(const char *folder, const char *name, const std::string &text);
