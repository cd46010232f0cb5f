#include "platform/vos_cond.h"

#include <cerrno>
#include <ctime>

#include "platform/stock/process/call_wait.h"
#include "platform/stock/process/wait_deadline.h"

int vos_cond_wait_init(vos_cond_t *cond, int clock)
{
    pthread_condattr_t attributes;
    int error = pthread_condattr_init(&attributes);
    if (error != 0)
        return error;
    pthread_condattr_setclock(&attributes, clock == 1 ? CLOCK_MONOTONIC : CLOCK_REALTIME);
    error = pthread_cond_init(&cond->cond, &attributes);
    pthread_condattr_destroy(&attributes);
    if (error != 0)
        return error;
    cond->clock = clock;
    cond->signalled = false;
    error = pthread_mutex_init(&cond->mutex, nullptr);
    if (error != 0)
        pthread_cond_destroy(&cond->cond);
    return error;
}

int vos_cond_wait(vos_cond_t *cond, int seconds)
{
    struct timespec now = {};
    clock_gettime(cond->clock == 1 ? CLOCK_MONOTONIC : CLOCK_REALTIME, &now);
    const struct timespec deadline = wait_deadline(now, seconds);

    pthread_mutex_lock(&cond->mutex);
    int result = 0;
    while (!cond->signalled && result == 0)
        result = pthread_cond_timedwait(&cond->cond, &cond->mutex, &deadline);
    if (cond->signalled)
        result = 0;
    cond->signalled = false;
    pthread_mutex_unlock(&cond->mutex);
    return result;
}

int vos_cond_wait_signal(vos_cond_t *cond)
{
    pthread_mutex_lock(&cond->mutex);
    cond->signalled = true;
    pthread_cond_signal(&cond->cond);
    pthread_mutex_unlock(&cond->mutex);
    call_waits_wake(); // a stop sets its flag before this signal
    return 0;
}

int vos_cond_wait_destroy(vos_cond_t *cond)
{
    pthread_cond_destroy(&cond->cond);
    pthread_mutex_destroy(&cond->mutex);
    return 0;
}
