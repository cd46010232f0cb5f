#include "stats/stat_answer.h"

#include "base/text.h"
#include "common/query.h"

std::string figure_fixed(double value, int decimals)
{
    return text_fixed(value, decimals);
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
