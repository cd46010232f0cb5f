#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

/* The content of an INI file, and what could not be read. */
struct TIni {
    /* By section and key: everything after the "=", without surrounding blanks; the last value of a repeated key. */
    std::map<std::pair<std::string, std::string>, std::string> values;
    size_t left_out = 0;       // lines
    size_t first_left_out = 0; // number of the first of them, from 1
    bool ends_whole = true;    // ends with a line feed

    /* Reads a value. Returns 0; 1 when section or key is missing; -EINVAL when it is missing and may be among the
     * ignored lines. *out is only changed on 0. */
    int get(const std::string &section, const std::string &key, std::string *out) const;
};

/* Parses an INI text. Lines that begin with ";" or "#" are comments; a ";" further on belongs to the value: names of
 * cameras and servers may contain it. Lines longer than the parser accepts, lines that are no key and lines with
 * control characters are ignored. So is a section head without its closing bracket or with a name longer than the
 * parser keeps, with all lines up to the next head: no value is ever read truncated or under another section. */
TIni ini_parse_text(std::string_view text);

/* Reads the file at `path` (plain; the host root is put in front), at most 1 MiB. While it looks half written, it is
 * read again for a moment, so that a partial file is not taken for the whole; -EAGAIN when it is still empty then.
 * Ignored lines are logged once per change of the file. Returns 0 or -errno; *out is only changed on 0. */
int ini_load(const std::string &path, TIni *out);

/* Whether the file changed within the last two seconds or is being replaced: missing keys may be about to be
 * written. */
bool ini_changed_just_now(const std::string &path);
