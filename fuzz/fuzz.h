#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

/* A parser of untrusted text, called with arbitrary text. A target lies in a source of its own and defines this one
 * function, which must return for any text. The text ends at the end of an allocation, without a NUL after it. */
void fuzz_one(std::string_view text);

/* A condition that must hold for any text. */
#define FUZZ_CHECK(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            (void)fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                              \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (false)
