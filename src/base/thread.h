#pragma once

#include <csignal>
#include <pthread.h>

/* While it exists, the calling thread blocks all signals but those of a crash; threads created meanwhile block them for
 * good. */
class TSignalsHeld {
public:
    TSignalsHeld();
    ~TSignalsHeld();
    TSignalsHeld(const TSignalsHeld &) = delete;
    TSignalsHeld &operator=(const TSignalsHeld &) = delete;

private:
    sigset_t m_before = {};
};

enum TThreadKind { kJoinable, kDetached };

/* Creates a thread that blocks all signals but those of a crash: the main thread handles them. Returns 0 or
 * pthread_create's error. */
int thread_create(TThreadKind kind, void *(*entry)(void *), void *argument, pthread_t *thread);

/* Names the calling thread; the kernel keeps the first 15 characters. */
void thread_set_name(const char *name);
