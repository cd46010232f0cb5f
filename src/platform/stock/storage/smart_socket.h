#pragma once

#include <string>

#include "platform/stock/process/child_process.h"

/* Asks the helper with access to disks (smart_helper/smart_helper.h) to run smartctl on a device ("sda"). The limits
 * are as for a child; beyond them the helper is left to finish alone. Returns the exit status of smartctl, with its
 * document in *document; -ENOENT without a helper; -EAGAIN when it sent no answer; -ETIMEDOUT, -EFBIG, -EINTR; another
 * -errno. */
int smart_socket_ask(const std::string &device, bool may_wake, const TChildLimits &limits, std::string *document);
