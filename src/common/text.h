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
