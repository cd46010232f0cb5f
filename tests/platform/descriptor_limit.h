#pragma once

#include <sys/resource.h>
#include <utility>

/* Limits the numbers of this process's descriptors; returns the limit before. */
inline rlim_t limit_descriptors(rlim_t most)
{
    rlimit limits = {};
    (void)getrlimit(RLIMIT_NOFILE, &limits);
    std::swap(limits.rlim_cur, most);
    (void)setrlimit(RLIMIT_NOFILE, &limits);
    return most;
}
