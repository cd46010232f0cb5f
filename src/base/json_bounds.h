#pragma once

#include <cstddef>
#include <string_view>

/* Limits for what a parser may turn into a tree. A tree takes far more memory than its text: json-c allocates 800 bytes
 * for an empty object, 80 to 190 for any other value or member. Within these limits a tree stays below 4 MB, and 192
 * channels may have eighty members each. */
constexpr size_t kJsonMaxNodes = 16384;
constexpr size_t kJsonObjectNodes = 5; // an object counts as this many
constexpr size_t kJsonMaxDepth = 64;

/* Checks untrusted JSON before any parser reads it: false when its tree would exceed the limits. The count is never
 * lower than the number of nodes a parser makes, even for text that is not JSON: each value but the first follows a
 * bracket, a brace or a comma. Only the content of strings is not counted, and only up to the first comment or single
 * quote; from there on parsers may disagree on what a string is. */
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
