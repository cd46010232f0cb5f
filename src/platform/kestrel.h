#pragma once

#include <cstdio>

/* While it exists, a program that the calling thread runs with kestrel_exec may take
 * that long; otherwise it is killed after a minute. Programs that are given more run
 * beside each other with different arguments, never twice with the same. */
class TToolTimeLimit {
public:
    explicit TToolTimeLimit(int seconds);
    ~TToolTimeLimit();
    TToolTimeLimit(const TToolTimeLimit &) = delete;
    TToolTimeLimit &operator=(const TToolTimeLimit &) = delete;
};

/* Runs `program` with the texts that follow as its arguments (the program's name
 * itself is added in front), up to a null pointer, and waits for its end. There
 * is no shell in between: texts arrive as they are. Descriptors of this process
 * are closed in the child. The first three numbers are the appliance's and are
 * always 0.
 *
 * Returns the exit status 0 to 255; 128 + n when signal n ended the program;
 * a negative errno when it could not be started or was given up (interrupt.h). */
int kestrel_exec(int reserved1, int reserved2, int reserved3, const char *program, ... /* const char *, nullptr */)
    __attribute__((sentinel));

/* Runs `program` as above and gives its standard output for reading; its
 * standard error goes to the null device. The program has ended, or was killed
 * after 5 s or after 1 MiB of output, before this returns: reading never
 * blocks. Null with errno when it could not be started. */
FILE *kestrel_popen(const char *program, ... /* const char *, nullptr */) __attribute__((sentinel));

/* Closes what kestrel_popen gave. Returns the program's result in the form of
 * kestrel_exec, negative too when it was killed. */
int kestrel_pclose(FILE *stream);
