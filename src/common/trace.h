#pragma once

/* Tells "source:function(line)" and a line feed on standard error, in one write.
 * The line numbers are names of places that other tools search for, so they are
 * given, not taken from the compiler. Any thread may call. */
void trace(const char *source, const char *function, int line);

/* The same with a folder behind it: "source:function(line) str_stats_folder=[folder]". */
void trace_folder(const char *source, const char *function, int line, const char *folder);

/* Tells a formatted text on standard error as it stands, in one write; longer
 * than 4 KiB it is cut. A text that nobody reads is dropped rather than waited for
 * (base/log_stream.h). */
void tell(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Writes a text to standard output, in the same way. */
void print_out(const char *text);
