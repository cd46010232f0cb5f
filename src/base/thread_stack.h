#pragma once

#include <cstddef>

/* What a thread of this process gets for its stack, in bytes. The C library takes the
 * thread-local variables out of it too. The build sets more where sanitizers are
 * compiled in: their variables alone are larger than the usual stack. */
#ifndef VELOMOND_THREAD_STACK
#define VELOMOND_THREAD_STACK 262144
#endif
constexpr size_t kThreadStack = VELOMOND_THREAD_STACK;
