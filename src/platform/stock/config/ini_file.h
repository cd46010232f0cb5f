#pragma once

#include <string>
#include <string_view>
#include <vector>

struct T_INI_ENTRY {
    std::string section;
    std::string key;
    std::string value; // everything behind the "=", without surrounding blanks

    bool operator==(const T_INI_ENTRY &) const = default;
};

/* The entries of an INI file in their order, and what could not be read. */
struct T_INI {
    std::vector<T_INI_ENTRY> entries;
    size_t left_out = 0;       // lines
    size_t first_left_out = 0; // the first of them, counted from 1
    bool ends_whole = true;    // with a line feed, or without any text

    /* The value of a key; the last one where it is given twice. Null when there
     * is none. Lives as long as the record. */
    const std::string *find(std::string_view section, std::string_view key) const;

    /* The same with a result: 0; 1 where section or key is missing; -EINVAL where it
     * is missing and may be among the lines left out. *out is only touched on 0. */
    int get(std::string_view section, std::string_view key, std::string *out) const;
};

/* Takes an INI text apart. Lines that begin with ";" or "#" are comments; a ";"
 * further on belongs to the value: names of cameras and servers may contain it.
 * A line longer than the parser takes, one that is no key, and one with a control
 * character are left out. So is a section head without its bracket or with a name
 * longer than the parser keeps, and all lines up to the next head with it: no value
 * ever comes out cut or under another section. */
T_INI ini_parse_text(std::string_view text);

/* The file at `path` (plain; the host root is put in front), at most 1 MiB. One
 * that somebody is just writing in place is awaited for a moment, so that half a
 * file is not taken for the whole; -EAGAIN when it is still empty then. Lines left
 * out are logged once per change of the file. 0 or -errno; *out is only touched
 * on 0. */
int ini_load(std::string_view path, T_INI *out);

/* Whether the file changed within the last two seconds or is being replaced: what it
 * lacks may be on its way. */
bool ini_changed_just_now(std::string_view path);
