#include "query_api/clean_text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace {

struct TRange {
    char32_t first, last;
};

/* Invisible characters, and those that reverse the text next to them. */
constexpr std::array kUnseen = {
    TRange{0x00, 0x1f},     TRange{0x7f, 0x9f},     TRange{0xad, 0xad},     TRange{0x61c, 0x61c},
    TRange{0x180e, 0x180e}, TRange{0x200b, 0x200f}, TRange{0x2028, 0x202e}, TRange{0x2060, 0x206f},
    TRange{0xd800, 0xf8ff}, TRange{0xfeff, 0xfeff}, TRange{0xfff0, 0xffff}, TRange{0xe0000, 0x10ffff},
};

constexpr std::array kCombining = {
    TRange{0x300, 0x36f},   TRange{0x483, 0x489},   TRange{0x591, 0x5bd},   TRange{0x610, 0x61a},
    TRange{0x64b, 0x65f},   TRange{0x1ab0, 0x1aff}, TRange{0x1dc0, 0x1dff}, TRange{0x20d0, 0x20ff},
    TRange{0xfe00, 0xfe0f}, TRange{0xfe20, 0xfe2f},
};

constexpr std::array kWide = {
    TRange{0x1100, 0x115f},   TRange{0x2e80, 0x303e},   TRange{0x3041, 0xa4cf},   TRange{0xac00, 0xd7a3},
    TRange{0xf900, 0xfaff},   TRange{0xfe30, 0xfe6f},   TRange{0xff00, 0xff60},   TRange{0xffe0, 0xffe6},
    TRange{0x1f300, 0x1f64f}, TRange{0x1f900, 0x1f9ff}, TRange{0x20000, 0x3fffd},
};

template <typename TRanges> bool in(const TRanges &ranges, char32_t code)
{
    return std::any_of(ranges.begin(), ranges.end(),
                       [code](const TRange &one) { return code >= one.first && code <= one.last; });
}

/* Removes the next character from the text and returns its bytes. *code is U+FFFF for
 * a byte that starts no valid character; that byte is then removed alone. */
std::string_view next_character(std::string_view *text, char32_t *code)
{
    const auto at = [text](size_t i) { return static_cast<uint8_t>((*text)[i]); };
    const uint8_t lead = at(0);
    const size_t size = lead < 0x80 ? 1 : lead >= 0xc2 && lead < 0xe0 ? 2 : (lead & 0xf0) == 0xe0 ? 3 : 4;
    constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    char32_t value = size == 1 ? lead : lead & (0x7fU >> size);
    bool valid = lead < 0x80 || (lead >= 0xc2 && lead < 0xf5 && text->size() >= size);
    for (size_t i = 1; valid && i < size; ++i) {
        valid = (at(i) & 0xc0) == 0x80;
        value = (value << 6) | (at(i) & 0x3fU);
    }
    valid = valid && value >= kLeast[size] && value <= 0x10ffff;
    const std::string_view bytes = text->substr(0, valid ? size : 1);
    *code = valid ? value : 0xffff;
    text->remove_prefix(bytes.size());
    return bytes;
}

size_t columns_of(char32_t code)
{
    return in(kCombining, code) ? 0 : in(kWide, code) ? 2 : 1;
}

} // namespace

std::string clean_text(std::string_view text, size_t max_chars)
{
    std::string clean;
    for (size_t count = 0; !text.empty() && count < max_chars; ++count) {
        char32_t code = 0;
        const std::string_view bytes = next_character(&text, &code);
        if (in(kUnseen, code))
            clean += '?';
        else
            clean += bytes;
    }
    return clean;
}

size_t text_columns(std::string_view text)
{
    size_t columns = 0;
    while (!text.empty()) {
        char32_t code = 0;
        (void)next_character(&text, &code);
        columns += columns_of(code);
    }
    return columns;
}

std::string text_fitted(std::string_view text, size_t columns, bool right)
{
    const size_t width = text_columns(text);
    if (width <= columns) {
        const std::string blanks(columns - width, ' ');
        return right ? blanks + std::string(text) : std::string(text) + blanks;
    }
    std::string fitted;
    size_t taken = 0;
    while (columns > 0) {
        char32_t code = 0;
        const std::string_view bytes = next_character(&text, &code);
        if (taken + columns_of(code) > columns - 1)
            break;
        fitted += bytes;
        taken += columns_of(code);
    }
    for (; taken < columns; ++taken)
        fitted += '~';
    return fitted;
}
