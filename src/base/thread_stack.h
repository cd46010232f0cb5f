#pragma once

#include <cstddef>

/* Stack size of a thread of this process, in bytes, thread-local variables included. The build sets more for
 * sanitizers: their variables alone are larger than the usual stack. */
#ifndef VELOMOND_THREAD_STACK
#define VELOMOND_THREAD_STACK 262144
#endif
constexpr size_t kThreadStack = VELOMOND_THREAD_STACK;
