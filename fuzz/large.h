#pragma once

#include <string>
#include <string_view>

/* The largest answer that is taken, 1 MiB, made of a small text: its second line again and again behind its first, or
 * all of it behind a bracket. Whatever that is, `work` must get by with less than 6 MiB of heap: with the answer
 * itself, in a string that grew by doubling, that is less than 8. Does nothing with texts that are no small ones. */
void fuzz_large(std::string_view text, void (*work)(const std::string &answer));
