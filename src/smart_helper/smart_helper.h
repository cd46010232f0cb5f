#pragma once

#include <string>
#include <string_view>

/* What the monitor lets another process do for it, so that it needs no access to
 * disks itself: read the SMART data of one. systemd starts that process for each
 * connection to the socket. */

/* A request is the name of a block device ("sda") or of an NVMe controller
 * ("nvme0") and a line feed; with "wake " before, a disk in standby is woken. The
 * answer is smartctl's document and, in a last line, "exit " and its exit status;
 * or nothing. */
struct T_SMART_REQUEST {
    std::string device; // letters and digits, 31 at most; empty for any other text
    bool may_wake = false;
};
T_SMART_REQUEST smart_request_parse(std::string_view text);

/* Answers the request on standard input to standard output. 0, or 1 where there is
 * no answer: for a name that the kernel does not know, for a device that is still
 * being read for an earlier request, and where no process can be started. */
int smart_helper_serve();
