#pragma once

#include <cstddef>

/* Writes to standard output and standard error without ever waiting for the reader. Text that would have to wait,
 * because the pipe behind the stream is full, is dropped; as soon as the stream accepts text again, "log lines dropped:
 * N" is written before it. The descriptors may be shared with other processes, so they are not made non-blocking: each
 * is polled for room, then written to once.
 *
 * The functions may be called from any thread and from signal handlers, and preserve errno. This process makes one
 * write at a time; another process that writes to the same pipe between poll and write could still take the last
 * room. */

/* The largest write that is never split (PIPE_BUF); longer text is truncated. */
inline constexpr size_t kLogStreamMost = 4096;

/* Writes text to descriptor 1 or 2 in one piece. Returns whether it was written. */
bool log_stream_write(int fd, const char *text, size_t length);

/* The same with a function that makes the one write itself, of at most kLogStreamMost bytes. Where the caller may be a
 * signal handler, the function must be async-signal-safe. */
bool log_stream_call(int fd, void (*write_once)(int fd, void *argument), void *argument);
