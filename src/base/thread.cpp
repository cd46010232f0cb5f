#include "base/thread.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <unistd.h>
#include <utility>

#include "base/log_stream.h"
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

int thread_start_detached(const char *name, std::function<void()> body)
{
    struct TThreadStart {
        const char *name;
        std::function<void()> body;
    };
    std::unique_ptr<TThreadStart> start(new (std::nothrow) TThreadStart{name, std::move(body)});
    if (start == nullptr)
        return ENOMEM;
    const auto entry = [](void *argument) -> void * {
        const std::unique_ptr<TThreadStart> own(static_cast<TThreadStart *>(argument));
        thread_set_name(own->name);
        try {
            own->body();
        } catch (const std::exception &failure) {
            char line[256];
            const int length =
                snprintf(line, sizeof(line), "%s ended by an exception: %s\n", own->name, failure.what());
            (void)log_stream_write(STDERR_FILENO, line, std::min(static_cast<size_t>(length), sizeof(line) - 1));
        }
        return nullptr;
    };
    pthread_t thread = {};
    const int error = thread_create(kDetached, entry, start.get(), &thread);
    if (error == 0)
        (void)start.release(); // owned by the thread now
    return error;
}

void thread_set_name(const char *name)
{
    char kernel_name[16]; // the kernel rejects longer names
    text_copy(kernel_name, name);
    (void)pthread_setname_np(pthread_self(), kernel_name);
}
