#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/* What reads foreign text, offered any text there is. A target lies in a source of
 * its own and defines this one function, which returns whatever the text holds.
 * The text's end is the end of an allocation, with no NUL behind it. */
void fuzz_one(std::string_view text);

/* What must hold whatever the text was. */
#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            (void)fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                              \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)
