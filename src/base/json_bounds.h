#pragma once

#include <cstddef>
#include <string_view>

/* What a parser may be given to make a tree of. A tree takes far more than its text: json-c makes 800 bytes of an empty
 * object, 80 to 190 of any other value or member. Within these bounds it stays below 4 MB, and 192 channels may have
 * eighty members each. */
constexpr size_t kJsonMaxNodes = 16384;
constexpr size_t kJsonObjectNodes = 5; // an object counts for so many
constexpr size_t kJsonMaxDepth = 64;

/* The one look at foreign JSON before any parser's: false when its tree would be larger than the bounds. It never
 * counts less than a parser makes, also of what is no JSON: each value but the first comes behind a bracket, a brace or
 * a comma. Only what stands in strings is not counted, and only up to the first comment or single quote, from where on
 * parsers may differ about what a string is. */
constexpr bool json_is_bounded(std::string_view text)
{
    size_t nodes = 1, depth = 0;
    bool in_string = false, has_strings = true;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (in_string) {
            if (c == '\\')
                ++i;
            in_string = c != '"';
            continue;
        }
        if (c == '"')
            in_string = has_strings;
        else if (c == '/' || c == '\'')
            has_strings = false;
        else if (c == ',')
            ++nodes;
        else if (c == '[' || c == '{') {
            nodes += c == '{' ? kJsonObjectNodes : 1;
            ++depth;
        } else if ((c == ']' || c == '}') && has_strings && depth > 0)
            --depth;
        if (nodes > kJsonMaxNodes || depth > kJsonMaxDepth)
            return false;
    }
    return true;
}
