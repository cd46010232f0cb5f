#include "base/thread.h"

#include "base/text.h"

TSignalsHeld::TSignalsHeld()
{
    sigset_t all;
    sigfillset(&all);
    for (const int crash : {SIGSEGV, SIGABRT, SIGTRAP, SIGBUS, SIGFPE, SIGILL})
        sigdelset(&all, crash);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
}

TSignalsHeld::~TSignalsHeld()
{
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
}

int thread_create(TThreadKind kind, void *(*entry)(void *), void *argument, pthread_t *thread)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (kind == kDetached)
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    const TSignalsHeld held;
    const int error = pthread_create(thread, &attributes, entry, argument);
    pthread_attr_destroy(&attributes);
    return error;
}

void thread_set_name(const char *name)
{
    char kernel_name[16]; // the kernel rejects longer names
    text_copy(kernel_name, name);
    (void)pthread_setname_np(pthread_self(), kernel_name);
}
