#pragma once

#include "base/mutex.h"

/* A wait that another thread can end: an auto-reset event. A signal without a waiter is kept for the next wait, so a
 * request to stop is never lost between testing a flag and going to sleep. */
struct vos_cond_t {
    TMutex mutex;
    TCondition changed;
    bool signalled = false; // protected by mutex
};

/* Makes the object ready, without a signal. Clock 1 is the monotonic one, the only one that is used. Returns 0 or an
 * error number. */
int vos_cond_wait_init(vos_cond_t *cond, int clock);

/* Sleeps until a signal or for `seconds` at most, and less than one second less.
 * With 0 it only takes a kept signal. Returns 0 after a signal, ETIMEDOUT otherwise. */
int vos_cond_wait(vos_cond_t *cond, int seconds);

/* Ends the wait in progress, or the next one. Returns 0. */
int vos_cond_wait_signal(vos_cond_t *cond);

/* Releases the object; no thread may be waiting on it. Returns 0. */
int vos_cond_wait_destroy(vos_cond_t *cond);
