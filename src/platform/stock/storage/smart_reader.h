#pragma once

#include <string>

/* Has smartctl look at a disk ("sda"), for a minute at most: its health, its
 * attributes and what it is. *out gets the document, which may be missing. A disk
 * in standby stays there unless may_wake is true.
 *
 * By the helper that may do so where there is one (smart_socket.h), else by a child.
 * smartctl's exit status (see smart_outcome()), or -errno when there is none. */
int smart_document(const std::string &disk, bool may_wake, std::string *out);
