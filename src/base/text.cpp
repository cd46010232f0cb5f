#include "base/text.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

int text_to_int(const char *text)
{
    const long value = strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

bool text_next_u64(std::string_view *rest, uint64_t *value)
{
    const size_t start = rest->find_first_not_of(" \t\n\v\f\r");
    if (start == std::string_view::npos)
        return false;
    std::string_view text = rest->substr(start);
    const bool negative = text.front() == '-';
    if (negative || text.front() == '+')
        text.remove_prefix(1);
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::invalid_argument)
        return false;
    if (error == std::errc::result_out_of_range)
        number = UINT64_MAX;
    *value = negative && error == std::errc() ? 0 - number : number;
    rest->remove_prefix(static_cast<size_t>(end - rest->data()));
    return true;
}

bool text_to_number(std::string_view text, long long *out)
{
    long long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return false;
    *out = value;
    return true;
}

std::string_view text_next_line(std::string_view *rest, size_t size)
{
    const size_t end = rest->substr(0, size - 1).find('\n');
    const std::string_view line = rest->substr(0, end == std::string_view::npos ? size - 1 : end + 1);
    rest->remove_prefix(line.size());
    return line;
}

std::string_view text_next_word(std::string_view *rest)
{
    constexpr const char *kBlanks = " \t\n\v\f\r";
    rest->remove_prefix(std::min(rest->find_first_not_of(kBlanks), rest->size()));
    const std::string_view word = rest->substr(0, rest->find_first_of(kBlanks));
    rest->remove_prefix(word.size());
    return word;
}

std::string_view text_trimmed(std::string_view text)
{
    constexpr const char *kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string text_fixed(double value, int decimals)
{
    char text[328]; // the largest double has 309 digits before the point
    constexpr double kPowers[] = {1, 10, 100};
    const double scaled = value * kPowers[decimals];
    /* Where the product is far from the middle of two figures, the error of the
     * multiplication does not matter and whole numbers do. */
    constexpr double kLargest = 1e9, kFar = 1e-6;
    const bool is_small = scaled < kLargest && !std::signbit(value);
    auto number = static_cast<uint64_t>(is_small ? scaled : 0);
    const double above_middle = scaled - static_cast<double>(number) - 0.5;
    if (is_small && std::abs(above_middle) > kFar) {
        number += above_middle > 0 ? 1 : 0;
        char *begin = std::end(text);
        for (int i = 0; i < decimals; ++i, number /= 10)
            *--begin = static_cast<char>('0' + number % 10);
        if (decimals > 0)
            *--begin = '.';
        do
            *--begin = static_cast<char>('0' + number % 10);
        while ((number /= 10) != 0);
        return {begin, std::end(text)};
    }
    const auto [end, error] =
        std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, decimals);
    return error == std::errc() ? std::string(text, end) : std::string();
}

std::string error_text(int error)
{
    char buffer[128];
    return strerror_r(error, buffer, sizeof(buffer)); // the GNU form, which always returns a text
}

std::string text_format(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

std::string text_printable(std::string_view text)
{
    constexpr char kHex[] = "0123456789abcdef";
    std::string printable;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7f)
            printable += c;
        else
            printable.append({'\\', 'x', kHex[byte >> 4], kHex[byte & 15]});
    }
    return printable;
}

size_t text_copy(char *buffer, size_t size, std::string_view text)
{
    if (size == 0)
        return 0;
    const size_t length = std::min(text.substr(0, text.find('\0')).size(), size - 1);
    memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return length;
}
