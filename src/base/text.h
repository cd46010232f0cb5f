#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/* Reads a decimal number as the C library's atoi does: leading blanks, a sign, digits; 0 without digits. Values beyond
 * int are clamped. */
int text_to_int(const char *text);

/* Takes the next number of a blank-separated list, as scanf's "%llu" does: a sign is allowed, and a number beyond 64
 * bits becomes the largest one. Returns true with *rest behind the number; false with nothing changed when no number
 * comes next. */
bool text_next_u64(std::string_view *rest, uint64_t *value);

/* Parses text that is nothing but a decimal number. False for anything else. */
bool text_to_number(std::string_view text, long long *out);

/* Takes the next line with its line feed, or the next `size` - 1 bytes of a longer one, as fgets does. Moves *rest
 * behind it; empty at the end of the text. */
std::string_view text_next_line(std::string_view *rest, size_t size);

/* Takes the next word up to a blank, as scanf's "%s" does. Moves *rest behind it; empty at the end of the text. */
std::string_view text_next_word(std::string_view *rest);

/* The text without leading and trailing blanks, tabs and line ends. */
std::string_view text_trimmed(std::string_view text);

/* The digits of printf's "%.*f" with 0 to 2 decimals, at a fraction of its cost. */
std::string text_fixed(double value, int decimals);

/* The C library's text for an error number. */
std::string error_text(int error);

/* The formatted text, whole. */
std::string text_format(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Escapes untrusted text for a log line: control characters become \x and two hexadecimal digits, so that no line feed
 * in it starts a line of its own. */
std::string text_printable(std::string_view text);

/* Copies `text` up to its first NUL into a buffer, truncated to fit with the closing NUL. Returns the number of
 * characters copied. */
size_t text_copy(char *buffer, size_t size, std::string_view text);

template <size_t kSize> size_t text_copy(char (&buffer)[kSize], std::string_view text)
{
    return text_copy(buffer, kSize, text);
}
