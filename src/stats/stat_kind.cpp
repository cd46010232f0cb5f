#include "stats/stat_kind.h"

#include <charconv>
#include <iterator>

std::string figure_fixed(double value, int decimals)
{
    /* The same digits as printf's "%.*f", at a fraction of its cost: this is most
     * of what an answer takes to make. */
    char text[328]; // the largest double has 309 digits before the point
    const auto [end, error] =
        std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, decimals);
    return error == std::errc() ? std::string(text, end) : std::string();
}
