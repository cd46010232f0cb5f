#pragma once

#include <csignal>
#include <pthread.h>

/* While it exists, the calling thread takes no signal but those of a crash; a
 * thread that is created meanwhile never does. */
class TSignalsHeld {
public:
    TSignalsHeld();
    ~TSignalsHeld();
    TSignalsHeld(const TSignalsHeld &) = delete;
    TSignalsHeld &operator=(const TSignalsHeld &) = delete;

private:
    sigset_t m_before;
};

enum TThreadKind { kJoinable, kDetached };

/* Creates a thread that takes no signal but those of a crash: the others belong to the
 * main thread. 0, or pthread_create's error. */
int thread_create(TThreadKind kind, void *(*entry)(void *), void *argument, pthread_t *thread);

/* Names the calling thread; the kernel keeps the first 15 characters. */
void thread_set_name(const char *name);
