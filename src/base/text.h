#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/* A decimal number in the form that the C library's atoi reads: leading blanks, a
 * sign, digits; 0 where there are none. Figures beyond int are clamped to its ends. */
int text_to_int(const char *text);

/* The next number of a list that blanks separate, as scanf's "%llu" reads it: a
 * sign is allowed, a figure beyond 64 bits is the largest one. Moves *rest behind
 * it and returns true; false, and nothing changed, when no number comes next. */
bool text_next_u64(std::string_view *rest, uint64_t *value);

/* A decimal number that fills the whole text. False for anything else. */
bool text_to_number(std::string_view text, long long *out);

/* The next line with its line feed, or the next `size` - 1 bytes of a longer one,
 * as fgets takes it. Moves *rest on; empty at the end of the text. */
std::string_view text_next_line(std::string_view *rest, size_t size);

/* The next word up to a blank, as scanf's "%s" takes it. Moves *rest behind it;
 * empty when there is none. */
std::string_view text_next_word(std::string_view *rest);

/* Without the blanks, tabs and line ends around it. */
std::string_view text_trimmed(std::string_view text);

/* The digits of printf's "%.*f" with 0 to 9 decimals, at a fraction of its cost. */
std::string text_fixed(double value, int decimals);

/* The formatted text, whole. */
std::string text_format(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* What somebody else wrote, for a line of a log: control characters as \x and two
 * hexadecimal digits, so that no line feed of theirs begins a line of ours. */
std::string text_printable(std::string_view text);

/* Puts `text` up to its first NUL into a buffer, cut to what fits before the
 * closing NUL. Returns the characters copied. */
size_t text_copy(char *buffer, size_t size, std::string_view text);

template <size_t N> size_t text_copy(char (&buffer)[N], std::string_view text)
{
    return text_copy(buffer, N, text);
}
