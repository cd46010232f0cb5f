#pragma once

#include <cstddef>

/* Writing to standard output and standard error without ever waiting for the
 * reader. A text that would have to wait, because the pipe behind the stream is
 * full, is dropped; as soon as the stream takes a text again, "log lines dropped: N"
 * is written before it. The descriptors may be shared with other processes, so they
 * are not made non-blocking: each is asked whether there is room, then written to
 * once.
 *
 * The functions may be called from any thread and from signal handlers, and keep
 * errno. One write at a time is made in this process; a process that writes to the
 * same pipe between our question and our write could still take the last room. */

/* The most that one write takes whole (PIPE_BUF); what is longer is cut. */
inline constexpr size_t kLogStreamMost = 4096;

/* Writes a text to descriptor 1 or 2, in one piece. Whether it was written. */
bool log_stream_write(int fd, const char *text, size_t length);

/* The same with a function that makes the one write itself, of at most
 * kLogStreamMost bytes. It must be as safe in a signal handler as its caller needs. */
bool log_stream_call(int fd, void (*write_once)(int fd, void *argument), void *argument);
