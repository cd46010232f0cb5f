#pragma once

#include <string>
#include <string_view>
#include <vector>

struct T_INI_ENTRY {
    std::string section;
    std::string key;
    std::string value; // everything behind the "=", without surrounding blanks
};

/* The entries of an INI file in their order. */
struct T_INI {
    std::vector<T_INI_ENTRY> entries;

    /* The value of a key; the last one where it is given twice. Null when there
     * is none. Lives as long as the record. */
    const std::string *find(std::string_view section, std::string_view key) const;
};

/* Takes an INI text apart. Lines that begin with ";" or "#" are comments; a ";"
 * further on belongs to the value: names of cameras and servers may contain it.
 * All or nothing: a text with a line longer than the parser takes, a section
 * without its bracket or with a name longer than the parser keeps, a line that
 * is no key, or a control character is refused as a whole, so that no value ever
 * comes out cut or under another section. Returns 0 or -EINVAL; *out is only
 * touched on 0. */
int ini_parse_text(std::string_view text, T_INI *out);

/* The file at `path` (plain; the host root is put in front), at most 1 MiB. One
 * that somebody is just writing in place is awaited for a moment, so that half a
 * file is not taken for the whole. 0 or -errno. */
int ini_load(std::string_view path, T_INI *out);
