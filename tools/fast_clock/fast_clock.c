/* Preloaded into the daemon, makes its clocks run FAST_CLOCK_SPEED times faster. The wall clock starts at
 * FAST_CLOCK_START (seconds since the epoch). Waits on conditions, sleeps, alarms and ppoll() are shortened
 * accordingly; libcurl stays in real time, which applies to the peers that it sets limits for. The wall clock can be
 * set while the daemon runs: it is ahead by the value in the file FAST_CLOCK_AHEAD, nanoseconds as a 64-bit number in
 * the machine's byte order, to be overwritten in place. */
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#define NS_PER_S INT64_C(1000000000)
/* Monotonic clocks start with the machine, so any later time is one of the wall clock. */
#define FIRST_WALL_S 1000000000

typedef int (*TClockwait)(pthread_cond_t *, pthread_mutex_t *, clockid_t, const struct timespec *);

static int64_t g_speed = 1;
static int64_t g_real_start;
static int64_t g_wall_start; /* of the fast wall clock, until it is set */
static _Atomic int64_t g_never_set;
static _Atomic int64_t *g_ahead = &g_never_set;
static uintptr_t g_curl_code;
static size_t g_curl_size;
static TClockwait g_clockwait;

static int64_t nanoseconds(const struct timespec *time)
{
    return time->tv_sec * NS_PER_S + time->tv_nsec;
}

static struct timespec spec(int64_t ns)
{
    const struct timespec time = {ns / NS_PER_S, ns % NS_PER_S};
    return time;
}

static int64_t real_ns(clockid_t clock)
{
    struct timespec now = {0, 0};
    (void)syscall(SYS_clock_gettime, clock, &now); /* bypasses our own clock_gettime */
    return nanoseconds(&now);
}

static void follow(const char *file)
{
    const int fd = open(file, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    void *map = mmap(NULL, sizeof(*g_ahead), PROT_READ, MAP_SHARED, fd, 0);
    (void)close(fd);
    if (map != MAP_FAILED)
        g_ahead = map;
}

static int find_curl(struct dl_phdr_info *object, size_t size, void *unused)
{
    (void)size;
    (void)unused;
    if (strstr(object->dlpi_name, "/libcurl") == NULL)
        return 0;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const ElfW(Phdr) *segment = &object->dlpi_phdr[i];
        if (segment->p_type == PT_LOAD && (segment->p_flags & PF_X) != 0) {
            g_curl_code = object->dlpi_addr + segment->p_vaddr;
            g_curl_size = segment->p_memsz;
        }
    }
    return 1;
}

__attribute__((constructor)) static void start(void)
{
    const char *speed = getenv("FAST_CLOCK_SPEED");
    const char *begin = getenv("FAST_CLOCK_START");
    const char *ahead = getenv("FAST_CLOCK_AHEAD");
    if (ahead != NULL)
        follow(ahead);
    g_speed = speed != NULL ? strtoll(speed, NULL, 10) : 1;
    g_real_start = real_ns(CLOCK_MONOTONIC);
    g_wall_start = begin != NULL ? strtoll(begin, NULL, 10) * NS_PER_S : real_ns(CLOCK_REALTIME);
    void *found = dlsym(RTLD_NEXT, "pthread_cond_clockwait");
    g_clockwait = *(TClockwait *)&found;
    (void)dl_iterate_phdr(find_curl, NULL);
}

static int64_t wall_start(void)
{
    return g_wall_start + atomic_load(g_ahead);
}

static int64_t passed_ns(void)
{
    return (real_ns(CLOCK_MONOTONIC) - g_real_start) * g_speed;
}

int clock_gettime(clockid_t clock, struct timespec *now)
{
    const uintptr_t caller = (uintptr_t)__builtin_return_address(0);
    if (caller - g_curl_code < g_curl_size) {
        *now = spec(real_ns(clock));
        return 0;
    }
    *now = spec((clock == CLOCK_REALTIME ? wall_start() : g_real_start) + passed_ns());
    return 0;
}

int gettimeofday(struct timeval *restrict now, void *restrict zone)
{
    (void)zone;
    const struct timespec time = spec(wall_start() + passed_ns());
    now->tv_sec = time.tv_sec;
    now->tv_usec = time.tv_nsec / 1000;
    return 0;
}

int pthread_cond_clockwait(pthread_cond_t *cond, pthread_mutex_t *mutex, clockid_t clock, const struct timespec *until)
{
    (void)clock;
    const int64_t start_ns = until->tv_sec >= FIRST_WALL_S ? wall_start() : g_real_start;
    const struct timespec real = spec(g_real_start + (nanoseconds(until) - start_ns) / g_speed);
    return g_clockwait(cond, mutex, CLOCK_MONOTONIC, &real);
}

int pthread_cond_timedwait(pthread_cond_t *restrict cond, pthread_mutex_t *restrict mutex,
                           const struct timespec *restrict until)
{
    return pthread_cond_clockwait(cond, mutex, CLOCK_MONOTONIC, until);
}

/* The daemon's own calls wait by ppoll() for a peer or a child; libraries use poll(). */
int ppoll(struct pollfd *descriptors, nfds_t count, const struct timespec *limit, const sigset_t *mask)
{
    struct timespec real = {0, 0};
    if (limit != NULL)
        real = spec(nanoseconds(limit) / g_speed);
    return (int)syscall(SYS_ppoll, descriptors, count, limit != NULL ? &real : NULL, mask, _NSIG / 8);
}

int nanosleep(const struct timespec *length, struct timespec *left)
{
    const struct timespec real = spec(nanoseconds(length) / g_speed);
    return (int)syscall(SYS_nanosleep, &real, left);
}

unsigned alarm(unsigned seconds)
{
    const struct timespec real = spec(seconds * NS_PER_S / g_speed);
    const struct itimerval length = {{0, 0}, {real.tv_sec, real.tv_nsec / 1000}};
    struct itimerval left = {{0, 0}, {0, 0}};
    (void)setitimer(ITIMER_REAL, &length, &left);
    return left.it_value.tv_sec != 0 || left.it_value.tv_usec != 0; /* whether one was set: all that is asked */
}
