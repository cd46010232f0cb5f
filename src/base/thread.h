#pragma once

#include <csignal>
#include <cstddef>
#include <functional>
#include <pthread.h>

/* Stack size of a thread of this process, in bytes, thread-local variables included. The build sets more for
 * sanitizers: their variables alone are larger than the usual stack. */
#ifndef VELOMOND_THREAD_STACK
#define VELOMOND_THREAD_STACK 262144
#endif
constexpr size_t kThreadStack = VELOMOND_THREAD_STACK;

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

/* Runs `body` in a detached thread of that name. An exception only ends the thread, which is logged on standard error.
 * Returns 0 or an error number. */
int thread_start_detached(const char *name, std::function<void()> body);

/* Names the calling thread; the kernel keeps the first 15 characters. */
void thread_set_name(const char *name);
