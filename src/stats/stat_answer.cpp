#include "stats/stat_answer.h"

#include <charconv>
#include <iterator>

#include "common/query.h"

std::string figure_fixed(double value, int decimals)
{
    /* The same digits as printf's "%.*f", at a fraction of its cost: this is most
     * of what an answer takes to make. */
    char text[328]; // the largest double has 309 digits before the point
    const auto [end, error] =
        std::to_chars(std::begin(text), std::end(text), value, std::chars_format::fixed, decimals);
    return error == std::errc() ? std::string(text, end) : std::string();
}

int stat_answer(std::span<const T_STAT_METHOD> methods, const char *method, const char *type, const char *key,
                json_object **out)
{
    for (const T_STAT_METHOD &one : methods) {
        if (!query_is(method, one.name))
            continue;
        int count = 0;
        const int result = one.counted ? query_count(type, &count) : kQueryOk;
        if (result == kQueryOk)
            *out = one.answer(key, count).release();
        return result;
    }
    return query_unknown(method);
}
