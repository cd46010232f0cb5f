#pragma once

#include <string>

#include "platform/stock/process/child_process.h"

/* Asks the helper with access to disks (smart_helper/smart_helper.h) to run smartctl on a device ("sda"). The limits
 * are as for a child; beyond them the helper is left to finish alone. Returns the exit status of smartctl, with its
 * document in *document; -ENOENT without a helper; -EAGAIN when it sent no answer; -ETIMEDOUT, -EFBIG, -EINTR; another
 * -errno. */
int smart_socket_ask(const std::string &device, bool may_wake, const TChildLimits &limits, std::string *document);

/* Runs smartctl on a disk ("sda"), for a minute at most, for its health, attributes and identity. *out receives the
 * document, which may be missing. A disk in standby is not woken unless may_wake is true.
 *
 * Uses the privileged helper if there is one, otherwise a child. Returns smartctl's exit status (see
 * smart_outcome()), or -errno without one. */
int smart_document(const std::string &disk, bool may_wake, std::string *out);
