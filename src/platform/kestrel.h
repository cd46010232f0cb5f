#pragma once

#include <cstdio>

/* While it exists, programs that the calling thread runs with kestrel_exec are killed after that time instead of after
 * a minute. Such programs run concurrently when their arguments differ, never twice with the same ones. */
class TToolTimeLimit {
public:
    explicit TToolTimeLimit(int seconds);
    ~TToolTimeLimit();
    TToolTimeLimit(const TToolTimeLimit &) = delete;
    TToolTimeLimit &operator=(const TToolTimeLimit &) = delete;
};

/* Runs `program` with the given texts, up to a null pointer, as its arguments (the program's name is put in front) and
 * waits for it to end. No shell is involved: the texts arrive unchanged. Descriptors of this process are closed in the
 * child. The first three numbers are the appliance's and always 0.
 *
 * Returns the exit status 0 to 255; 128 + n when signal n ended the program; a negative errno when it could not be
 * started or was cancelled (interrupt.h). */
int kestrel_exec(int reserved1, int reserved2, int reserved3, const char *program, ... /* const char *, nullptr */)
    __attribute__((sentinel));

/* Runs `program` as above and returns its standard output for reading; its standard error goes to the null device.
 * Before this returns, the program has ended, or was killed after 5 s or 1 MiB of output: reading never blocks. Null
 * with errno when it could not be started. */
FILE *kestrel_popen(const char *program, ... /* const char *, nullptr */) __attribute__((sentinel));

/* Closes a stream of kestrel_popen. Returns the program's result as kestrel_exec does; negative also when it was
 * killed. */
int kestrel_pclose(FILE *stream);
