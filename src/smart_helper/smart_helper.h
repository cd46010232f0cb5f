#pragma once

#include <string>
#include <string_view>

/* Reads the SMART data of one disk in a process of its own, so that the daemon needs no access to disks. systemd starts
 * that process for each connection to the socket. */

/* A request is the name of a block device ("sda") or of an NVMe controller ("nvme0") and a line feed; with "wake "
 * before the name, a disk in standby is woken. The answer is smartctl's document and, as the last line, "exit " and its
 * exit status; empty on failure. */
struct TSmartRequest {
    std::string device; // letters and digits, 31 at most; empty for any other text
    bool may_wake = false;
};
TSmartRequest smart_request_parse(std::string_view text);

/* Reads a request from standard input and writes the answer to standard output. Returns 0, or 1 without an answer: for
 * a device that the kernel does not know, for one that is still being read for an earlier request, or when no process
 * can be started. */
int smart_helper_serve();
