#pragma once

#include <string>

/* Runs smartctl on a disk ("sda"), for a minute at most, for its health, attributes and identity. *out receives the
 * document, which may be missing. A disk in standby is not woken unless may_wake is true.
 *
 * Uses the privileged helper if there is one (smart_socket.h), otherwise a child. Returns smartctl's exit status (see
 * smart_outcome()), or -errno without one. */
int smart_document(const std::string &disk, bool may_wake, std::string *out);
