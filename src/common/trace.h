#pragma once

/* Writes "source:function(line)" and a line feed to standard error, in one write.
 * The line numbers are names of places that other tools search for, so they are
 * given, not taken from the compiler. Any thread may call. */
void trace(const char *source, const char *function, int line);

/* The same with a folder behind it: "source:function(line) str_stats_folder=[folder]". */
void trace_folder(const char *source, const char *function, int line, const char *folder);

/* Writes a formatted text, cut to 4 KiB, to standard error unchanged and in one write.
 * It never waits for the reader: a text that does not fit is dropped
 * (base/log_stream.h). */
void write_stderr(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* Writes a text to standard output, in the same way. */
void write_stdout(const char *text);
