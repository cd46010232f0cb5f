/* Control of this folder's preloads: a file named by FAULTS, shared by a mapping, so that a test can switch them on and
 * off and read their counters while the process runs. All words are 64 bits wide, in the machine's byte order. */
#pragma once

#include <fcntl.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

typedef struct {
    _Atomic uint64_t fail_at;      /* the allocation that fails, counted by `allocations`; 0: no failure */
    _Atomic uint64_t allocations;  /* seen while armed, in the threads that count */
    _Atomic uint64_t failed;       /* of these */
    _Atomic uint64_t call_rate;    /* this many of 65536 system calls fail */
    _Atomic uint64_t calls;        /* seen while armed */
    _Atomic uint64_t calls_failed; /* of these */
    char thread[16];               /* only counts allocations of threads with this prefix in their names */
} TFaults;

static TFaults g_disarmed;
static TFaults *g_faults = &g_disarmed;

static inline void follow_faults(void)
{
    const char *file = getenv("FAULTS");
    const int fd = file != NULL ? (int)syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0)
        return;
    void *map = mmap(NULL, sizeof(TFaults), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    (void)syscall(SYS_close, fd);
    if (map != MAP_FAILED)
        g_faults = map;
    (void)unsetenv("LD_PRELOAD"); /* the daemon's tools run without faults */
}

static inline int is_counted_thread(void)
{
    char name[16] = "";
    if (g_faults->thread[0] == '\0')
        return 1;
    (void)prctl(PR_GET_NAME, name);
    return strncmp(name, g_faults->thread, strlen(g_faults->thread)) == 0;
}
