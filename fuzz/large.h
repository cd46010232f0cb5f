#pragma once

#include <string>
#include <string_view>

/* Runs `work` on an answer of the largest accepted size, 1 MiB, made of a small text: its second line repeated after
 * its first, or all of it repeated after a bracket. `work` must use less than 6 MiB of heap: with the answer itself, in
 * a string that grew by doubling, that is less than 8. Does nothing for texts that are not small. */
void fuzz_large(std::string_view text, void (*work)(const std::string &answer));
