#pragma once

#include <cstddef>
#include <cstdint>

/* Sizes as the surveillance event log and the notification centre show them. An
 * amount is `count` times `unit` bytes, modulo 2^64; unit 0 counts as 1. A count
 * of 0 writes nothing: the buffers keep what they had. Texts are cut to their
 * buffers. */

/* "1023", "9.5 GB", "10.0 GB": one digit behind the point and a letter of KMGTPE.
 * With a divisor (not 0) the amount is shown in units of it, rounded, as a plain
 * number. With unit 0 the value is rounded to a whole one: "10 GB". */
void format_size_human(char *out, size_t size, uint64_t count, uint64_t unit, uint64_t divisor);

/* A value in single quotes, "'9.5'", and beside it the token of its unit, which
 * the receiving log system replaces by the word for MB, GB or TB. Whole MB below
 * 1 GB; above, one digit behind the point, or with `rounded` or unit 0 none. */
void format_size_quoted(char *value, size_t value_size, char *unit_text, size_t unit_size, uint64_t count,
                        uint64_t unit, bool rounded);
